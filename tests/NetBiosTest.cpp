// NetBIOSCls: its texts, the messages of a node status by themselves, this host's adapters, and
// hosts that are asked on port 137 of an address of the test's own; where that may not be had, the
// test low_ports runs those.
#include <netro/NetBIOSCls.h>
#include <netro/SocketCls.h>

#include <cctype>
#include <future>

#include "DnsTestKit.h"
#include "SystemKit.h"
#include "diag/NodeStatus.h"
#include "support/HardwareAddress.h"
#include "tests/peers/NodeStatusReply.h"

namespace netro {
namespace {

using From = DatagramServer::From;
using Replies = DatagramServer::Replies;

constexpr char kMac[] = "00-0A-95-9D-68-16";

TEST(NetBiosErrorText, OfCodesThatAreKnownAndOthers) {
  const NetBIOSCls netbios;
  EXPECT_EQ(netbios.GetErrorText(0), "");
  EXPECT_EQ(netbios.GetErrorText(0x05), "Command Timed Out");
  EXPECT_EQ(netbios.GetErrorText(0xFF), "Asynchronous Command Is Not Yet Completed");
  for (const std::int32_t code : {-1, 0x02, 0x3E, 0x100, 10002, 65536 + 5})
    EXPECT_EQ(netbios.GetErrorText(code), "Unknown Error") << code;
}

Bytes BytesOf(const std::string& text) { return {text.begin(), text.end()}; }

bool Reads(const std::string& reply) {
  AdapterStatus status;
  status.nameCount = 99;
  const bool read = ReadNodeStatus(BytesOf(reply), status);
  EXPECT_EQ(status.nameCount == 99, !read) << "what fails leaves nothing behind";
  return read;
}

TEST(HardwareAddressText, HasTwoDigitsAByteAndTheDivider) {
  const HardwareAddress address = {0x00, 0xFF, 0x0F, 0xF0, 0x68, 0x16};
  EXPECT_EQ(FormatHardwareAddress(address, "-"), "00-FF-0F-F0-68-16");
  EXPECT_EQ(FormatHardwareAddress(address, ""), "00FF0FF06816");
  EXPECT_EQ(FormatHardwareAddress(address, ", "), "00, FF, 0F, F0, 68, 16");
}

TEST(NodeStatusRequest, AsksTheHostWhateverItsName) {
  for (const unsigned id : {0u, 0x1234u, 0xFFFFu})
    EXPECT_EQ(ComposeNodeStatusRequest(static_cast<std::uint16_t>(id)),
              BytesOf(NetBios16(id) + "\0\0\0\1\0\0\0\0\0\0"s + AnyNode() + "\0\x21\0\1"s));
}

TEST(NodeStatusReply, LargeNumbersKeepTheirBits) {
  NodeStatusReply reply;
  reply.statistics = std::string(46, '\xFF');
  AdapterStatus status;
  ASSERT_TRUE(ReadNodeStatus(BytesOf(reply.Bytes()), status));
  EXPECT_EQ(status.revMajor, 255);
  EXPECT_EQ(status.duration, -1);
  EXPECT_EQ(status.xmitSuccess, -1);
  EXPECT_EQ(status.maxSessPktSize, -1);
}

TEST(NodeStatusReply, CutAtEveryByteIsNone) {
  const std::string whole = NodeStatusReply().Bytes();
  for (std::size_t size = 0; size < whole.size(); ++size)
    EXPECT_FALSE(Reads(whole.substr(0, size))) << size;
  EXPECT_TRUE(Reads(whole + "more"));
  const std::string statistics = testkit::CountingStatistics();
  for (std::size_t size = 0; size <= statistics.size(); ++size) {
    const NodeStatusReply cut{.statistics = statistics.substr(0, size)};
    EXPECT_EQ(Reads(cut.Bytes() + "behind the data"), size == statistics.size()) << size;
  }
}

TEST(NodeStatusReply, CountsThatLie) {
  const std::string question = AnyNode() + "\0\x21\0\1"s;
  const std::string kNone(1, '\0');
  const std::tuple<const char*, NodeStatusReply, bool> kCases[] = {
      {"no names", {.names = {}}, true},
      {"255 names", {.names = std::vector<std::string>(255, "A              ")}, true},
      {"a name more than there is", {.nameCount = "\x03"}, false},
      {"255 names and two there", {.nameCount = "\xFF"}, false},
      {"a name less: its bytes count as statistics", {.nameCount = "\x01"}, true},
      {"length of nothing", {.length = NetBios16(0)}, false},
      {"length of a byte less", {.length = NetBios16(1 + 36 + 45)}, false},
      {"length of a byte more", {.length = NetBios16(1 + 36 + 47)}, false},
      {"the greatest length", {.length = "\xFF\xFF"}, false},
      {"no answer", {.counts = "\0\0\0\0\0\0\0\0"s}, false},
      {"more answers than there are", {.counts = "\0\0\xFF\xFF\0\0\0\0"s}, true},
      {"a question that is not there", {.counts = "\0\1\0\1\0\0\0\0"s}, false},
      {"65535 questions", {.counts = "\xFF\xFF\0\1\0\0\0\0"s}, false},
      {"other sections are not read", {.counts = "\0\0\0\1\xFF\xFF\xFF\xFF"s}, true},
      // and other shapes
      {"a question is repeated", {.counts = "\0\1\0\1\0\0\0\0"s, .questions = question}, true},
      {"the name points to the question",
       {.counts = "\0\1\0\1\0\0\0\0"s, .questions = question, .name = "\xC0\x0C"},
       true},
      {"the name points to itself", {.name = "\xC0\x0C"}, false},
      {"the name points beyond the end", {.name = "\xFF\xFF"}, false},
      {"the root's name", {.name = "\0"s}, true},
      {"a name of labels without end", {.name = std::string(300, '\x01')}, false},
      {"a length byte that is none", {.name = "\x7F" + std::string(200, 'A')}, false},
      {"a name in a scope", {.name = AnyNode().substr(0, 33) + "\5scope\0"s}, true},
      {"truncated, yet whole", {.flags = "\x86\0"s}, true},
      {"a request", {.flags = "\0\0"s}, false},
      {"a registration", {.flags = "\xAC\0"s}, false},
      {"a refusal", {.flags = "\x84\5"s}, false},
      {"an address", {.typeAndClass = "\0\x20\0\1"s}, false},
      {"another class", {.typeAndClass = "\0\x21\0\3"s}, false},
  };
  for (const auto& [what, reply, good] : kCases) EXPECT_EQ(Reads(reply.Bytes()), good) << what;
}

TEST(NodeStatusReply, OnlyAnotherIdTellsThatItIsForSomethingElse) {
  const std::string reply = NodeStatusReply().Bytes();
  for (const auto& [bytes, mine] : {std::pair(reply, true),
                                    {"\x12\x34"s, true},
                                    {"\x12"s, true},
                                    {""s, true},
                                    {"\x12\x35" + reply.substr(2), false},
                                    {"\x13\x34"s, false}})
    EXPECT_EQ(MayAnswerNodeStatus(BytesOf(bytes), 0x1234), mine) << bytes.size();
}

TEST(NetBiosAdapter, EveryNameOfThisHostIsThisHost) {
  std::string own = HostName();
  const std::string shortName = own.substr(0, own.find('.'));
  for (char& c : own) c = static_cast<char>(toupper(c));
  NetBIOSCls first;
  std::int32_t firstError = -1;
  const bool found = first.GetMacAddress(0, "*", ":", firstError);
  for (const std::string& name : {""s, "    "s, "*               "s, own, shortName}) {
    NetBIOSCls netbios;
    std::int32_t error = -1;
    EXPECT_EQ(netbios.GetMacAddress(0, name, ":", error), found) << name;
    EXPECT_EQ(error, firstError);
    EXPECT_EQ(netbios.MacAddress(), first.MacAddress());
  }
}

TEST(NetBiosAdapter, NumbersThatAreNone) {
  const DatagramServer::Answer answer = [](const std::string& request) -> Replies {
    return {NodeStatusReply{.id = request.substr(0, 2)}.Bytes()};
  };
  const auto server = testkit::ServeOnOwnAddress(answer, 137);
  NetBIOSCls netbios;
  for (const int adapter : {254, 255, 256, 1000, 32'767, -1, -32'768})
    for (const std::string& host : {"*"s, "a..test"s, server ? server->Ip() : "127.0.0.1"}) {
      std::int32_t error = 0;
      EXPECT_FALSE(netbios.GetMacAddress(static_cast<std::int16_t>(adapter), host, "-", error));
      EXPECT_EQ(error, 35) << adapter << host;
      EXPECT_EQ(netbios.MacAddress(), "");
    }
  if (server) {
    EXPECT_EQ(server->Received().size(), 0u) << "nobody is asked";
  }
}

struct NetBiosRemote : testing::Test {
  void SetUp() override {
    if (!testkit::ServeOnOwnAddress([](const auto&) { return Replies(); }, 137))
      GTEST_SKIP() << "port 137 of 127.0.0.0/8 may not be used here";
  }

  // From then on "box.test" is the server.
  DatagramServer& Serve(const DatagramServer::Answer& answer) {
    server_ = testkit::ServeOnOwnAddress(answer, 137);
    root_.Put("etc/hosts", server_->Ip() + " box.test\n");
    return *server_;
  }

  bool Ask(std::int32_t& error) { return netbios_->GetMacAddress(0, server_->Ip(), "-", error); }
  // The error of a query that is answered so.
  std::int32_t ErrorOf(const DatagramServer::Answer& answer) {
    Serve(answer);
    std::int32_t error = -1;
    const bool read = Ask(error);
    EXPECT_EQ(read, error == 0);
    return error;
  }

  static std::string ReplyTo(const std::string& request, NodeStatusReply reply = {}) {
    reply.id = request.substr(0, 2);
    return reply.Bytes();
  }
  static Replies GoodAnswer(const std::string& request) { return {ReplyTo(request)}; }

  // Lets a second go by for each of the first `requests` datagrams that the server has got.
  std::function<bool()> SecondForEachOf(std::size_t requests) {
    return [this, requests, turns = std::size_t{0}]() mutable {
      const std::size_t seen = std::min(server_ ? server_->Count() : 0, requests);
      return turns < 10 * seen && ++turns > 0;
    };
  }

  SystemRoot root_;
  std::unique_ptr<DatagramServer> server_;
  std::unique_ptr<NetBIOSCls> netbios_ = std::make_unique<NetBIOSCls>();
};

TEST_F(NetBiosRemote, AsksOnceAndReadsTheStatus) {
  Serve(GoodAnswer);
  std::int32_t error = -1;
  EXPECT_TRUE(Ask(error));
  EXPECT_EQ(error, 0);
  EXPECT_EQ(netbios_->MacAddress(), kMac);
  const NetBIOSCls& n = *netbios_;
  EXPECT_EQ((std::vector<std::int32_t>{
                n.RevMajor(), n.RevMinor(), n.AdapterType(), n.Duration(), n.FrmrRecv(),
                n.FrmrXmit(), n.IframeRecvErr(), n.XmitAborts(), n.XmitSuccess(), n.RecvSuccess(),
                n.IframeXmitErr(), n.RecvBuffUnavail(), n.FreeNcbs(), n.MaxCfgNcbs(), n.MaxNcbs(),
                n.PendingSess(), n.MaxCfgSess(), n.MaxSess(), n.MaxSessPktSize()}),
            (std::vector<std::int32_t>{3, 4, 0, 0x0506, 0x0708, 0x090A, 0x0B0C, 0x0D0E, 0x0F101112,
                                       0x13141516, 0x1718, 0x191A, 0x1B1C, 0x1D1E, 0x1F20, 0x2122,
                                       0x2324, 0x2526, 0x2728}));
  EXPECT_EQ(netbios_->NameCount(), 2);
  const std::vector<std::string> requests = server_->Received();
  ASSERT_EQ(requests.size(), 1u);
  EXPECT_EQ(requests[0].substr(2), "\0\0\0\1\0\0\0\0\0\0"s + AnyNode() + "\0\x21\0\1"s);
}

TEST_F(NetBiosRemote, HostAdapterAndDividerAreTheCalls) {
  Serve(GoodAnswer);
  const struct {
    std::string host;
    std::int16_t adapter;
    const char* divider;
    std::int32_t error;
    const char* mac;
  } kCases[] = {{server_->Ip(), 0, "::", 0, "00::0A::95::9D::68::16"},
                {"box.test", 1, "", 0, "000A959D6816"},
                {"box.test       ", 253, "-", 0, kMac},  // filled with blanks
                {"a..test", 0, "", 0x14, kMac},
                {"255.255.255.255", 0, "", 0x14, kMac},
                {"127.255.255.255", 0, "", 0x40, kMac}};  // the system refuses
  for (const auto& c : kCases) {
    std::int32_t error = -1;
    EXPECT_EQ(netbios_->GetMacAddress(c.adapter, c.host, c.divider, error), c.error == 0) << c.host;
    EXPECT_EQ(error, c.error) << c.host;
    EXPECT_EQ(netbios_->MacAddress(), c.mac) << c.host;
  }
}

TEST_F(NetBiosRemote, IsAskedFourTimes) {
  for (const std::size_t silences : {1u, 2u, 3u}) {
    Serve([silences, requests = std::size_t{0}](const std::string& request) mutable {
      return ++requests > silences ? GoodAnswer(request) : Replies();
    });
    const RunningClock clock(SecondForEachOf(silences));
    std::int32_t error = -1;
    EXPECT_TRUE(Ask(error)) << silences;
    const std::vector<std::string> received = server_->Received();
    EXPECT_EQ(received, std::vector(silences + 1, received[0]));
  }
}

TEST_F(NetBiosRemote, LateRepliesCount) {
  Serve([requests = 0, first = ""s](const std::string& request) mutable -> Replies {
    if (++requests == 1) first = ReplyTo(request);
    return requests == 3 ? Replies{first} : Replies();
  });
  const RunningClock clock(SecondForEachOf(2));
  std::int32_t error = -1;
  EXPECT_TRUE(Ask(error));
  EXPECT_EQ(error, 0);
}

TEST_F(NetBiosRemote, SilenceIsATimeOutAfterFourSeconds) {
  const RunningClock clock(SecondForEachOf(4));
  const Takes time(seconds(4), seconds(6));
  EXPECT_EQ(ErrorOf([](const auto&) { return Replies(); }), 0x05);
  EXPECT_EQ(server_->Received().size(), 4u);
}

TEST_F(NetBiosRemote, RepliesOfOthersDoNotCount) {
  EXPECT_EQ(ErrorOf([](const std::string& request) -> Replies {
              NodeStatusReply forged{.names = {}};
              std::string otherId = ReplyTo(request, forged);
              otherId[1] = static_cast<char>(otherId[1] + 1);
              return {{ReplyTo(request, forged), From::kOtherPort},
                      {ReplyTo(request, forged), From::kOtherAddress},
                      otherId,
                      ReplyTo(request)};
            }),
            0);
  EXPECT_EQ(netbios_->NameCount(), 2);
}

TEST_F(NetBiosRemote, MalformedReplies) {
  const std::size_t whole = NodeStatusReply().Bytes().size();
  for (const std::size_t size :
       {std::size_t{0}, std::size_t{2}, std::size_t{12}, whole - 1, whole, std::size_t{65'000}}) {
    EXPECT_EQ(ErrorOf([=](const std::string& request) -> Replies {
                if (size < whole) return {ReplyTo(request).substr(0, size)};
                if (size == whole) return {request};
                return {request.substr(0, 2) + std::string(size, '\xFF')};
              }),
              0x06)
        << size;
    EXPECT_EQ(server_->Received().size(), 1u) << "is not asked again";
  }
}

TEST_F(NetBiosRemote, PropertiesKeepTheLastSuccess) {
  ASSERT_EQ(ErrorOf(GoodAnswer), 0);
  EXPECT_EQ(ErrorOf([](const std::string& request) -> Replies { return {request}; }), 0x06);
  std::int32_t error = 0;
  EXPECT_FALSE(netbios_->GetMacAddress(254, "*", "", error));
  EXPECT_FALSE(netbios_->GetRemoteMACAddress("127.0.0.1", ""));
  EXPECT_EQ(netbios_->MacAddress(), kMac);
  EXPECT_EQ(netbios_->XmitSuccess(), 0x0F101112);
  EXPECT_EQ(netbios_->NameCount(), 2);
}

struct EndOfNetBios : NetBiosRemote {
  // Ends a query that waits for a reply, and one that looks a name up; without an object afterwards
  // it has been deleted.
  void EndEverywhere(const std::function<void()>& end, std::int32_t code = 0x0B) {
    netbios_ = std::make_unique<NetBIOSCls>();
    Serve([](const auto&) { return Replies(); });
    PostWhen([&] { return server_->Count() > 0; }, end);
    EXPECT_EQ(End(server_->Ip()), code);
    if (netbios_) {
      EXPECT_EQ(ErrorOf(GoodAnswer), 0) << "what ended a query ends no other";
    }

    const auto silent = testkit::ServeOnOwnAddress([](const auto&) { return Replies(); }, 53);
    if (!silent) return;  // the port may not be had: then nobody keeps a lookup waiting
    root_.Put("etc/resolv.conf", "nameserver " + silent->Ip() + "\n");
    std::thread([&] {
      netbios_ = std::make_unique<NetBIOSCls>();
      PostWhen([&] { return silent->Count() > 0; }, end);
      EXPECT_EQ(End("nobody.test"), code);
      netbios_.reset();
    }).join();
  }

  std::int32_t End(const std::string& host) {
    std::int32_t error = -1;
    EXPECT_FALSE(netbios_->GetMacAddress(0, host, "-", error));
    if (thread_.joinable()) thread_.join();
    return error;
  }

  std::thread thread_;
};

TEST_F(EndOfNetBios, InEachPlace) {
  EndEverywhere([&] { netbios_->StopWaiting(); });
  EndEverywhere([&] { thread_ = std::thread([&] { netbios_->Kill(); }); });
  EndEverywhere([] { SocketCls().Kill(); });  // of another object of the thread
  EndEverywhere([&] { netbios_.reset(); });
}

TEST_F(EndOfNetBios, MeanwhileOtherCallsAreRefusedAndOtherObjectsWork) {
  EndEverywhere([&] {
    std::int32_t error = 0;
    EXPECT_FALSE(netbios_->GetMacAddress(0, "*", "-", error));
    EXPECT_EQ(error, 0x21);
    EXPECT_FALSE(netbios_->GetRemoteMACAddress("10.77.0.1", "-"));
    const auto server = testkit::ServeOnOwnAddress(GoodAnswer, 137);
    EXPECT_TRUE(NetBIOSCls().GetMacAddress(0, server->Ip(), "-", error));
    netbios_->StopWaiting();
  });
}

TEST_F(EndOfNetBios, DeletionWhenTheReplyIsThere) {
  std::promise<void> mayAnswer;
  Serve([&](const std::string& request) {
    mayAnswer.get_future().wait();
    return GoodAnswer(request);
  });
  PostWhen([&] { return server_->Count() > 0; },
           [&] {
             mayAnswer.set_value();
             server_->Received();  // the reply is on its way
             netbios_.reset();
           });
  EXPECT_EQ(End(server_->Ip()), 0x0B);
}

}  // namespace
}  // namespace netro
