// NetBIOSCls: its texts, this host's adapters, and hosts that are asked over UDP. Those stand on
// port 137 of an address of 127.0.0.0/8 of the test's own; where the port may not be had, their
// tests are skipped, and the test low_ports runs them in a network namespace.

#include <gtest/gtest.h>
#include <net/if.h>
#include <netro/MessageLoop.h>
#include <netro/NetBIOSCls.h>
#include <netro/SocketCls.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <chrono>
#include <cstdio>
#include <functional>
#include <future>
#include <iterator>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "DnsTestKit.h"
#include "SystemRoot.h"
#include "platform/Clock.h"
#include "tests/peers/DatagramServer.h"
#include "tests/peers/NodeStatusReply.h"

namespace netro {
namespace {

using namespace std::string_literals;
using peers::DatagramServer;
using peers::NodeStatusReply;
using std::chrono::milliseconds;
using std::chrono::seconds;
using From = DatagramServer::From;
using Replies = DatagramServer::Replies;

constexpr char kMac[] = "00-0A-95-9D-68-16";

TEST(NetBiosErrorText, OfEveryCode) {
  const struct {
    std::int32_t code;
    const char* text;
  } kTexts[] = {{0x00, ""},
                {0x01, "Illegal Buffer Length"},
                {0x03, "Illegal Command"},
                {0x05, "Command Timed Out"},
                {0x06, "Message Incomplete. Issue Another Command"},
                {0x07, "Illegal Buffer Address"},
                {0x08, "Session Number is Out of Range"},
                {0x09, "No Resources Available"},
                {0x0A, "Session Closed"},
                {0x0B, "Command Cancelled"},
                {0x0D, "Duplicate Name"},
                {0x0E, "Name Table Full"},
                {0x0F, "No Deletions. 'Name' has Active Sessions"},
                {0x11, "Local Session Table Full"},
                {0x12, "Remote Session Table Full"},
                {0x13, "Illegal Name Number"},
                {0x14, "No Call Name"},
                {0x15, "Cannot Put in NCB_NAME"},
                {0x16, "Name in Use on Remote Computer"},
                {0x17, "Name Deleted"},
                {0x18, "Session Ended Abnormally"},
                {0x19, "Name Conflict Detected"},
                {0x21, "Interface Busy. IRET Before Retrying"},
                {0x22, "Too Many Commands Outstanding. Retry Later"},
                {0x23, "ncb_lana_num Field Invalid"},
                {0x24, "Command Completed While Cancel Occurring"},
                {0x26, "Command Not Valid to Cancel"},
                {0x30, "Name Defined By Another Process"},
                {0x34, "Environment Undefined. RESET Required"},
                {0x35, "Required OS Resources Exhausted"},
                {0x36, "Max Number Of Applications Exceeded"},
                {0x37, "No saps Available for NetBIOS"},
                {0x38, "Requested Resources are Not Available"},
                {0x39, "Invalid NCB Address, or Length > Segment"},
                {0x3B, "Invalid NCB DDID"},
                {0x3C, "Lock of User Area Failed"},
                {0x3F, "NetBIOS Not Loaded"},
                {0x40, "System Error"},
                {0xFF, "Asynchronous Command Is Not Yet Completed"}};
  const NetBIOSCls netbios;
  const auto* next = std::begin(kTexts);
  for (std::int32_t code = 0; code <= 0x200; ++code) {
    const bool known = next != std::end(kTexts) && next->code == code;
    EXPECT_EQ(netbios.GetErrorText(code), known ? next++->text : "Unknown Error") << code;
  }
  EXPECT_EQ(next, std::end(kTexts));
  for (const std::int32_t code : {-1, 9999, 10002, 10036, 65536 + 5})
    EXPECT_EQ(netbios.GetErrorText(code), "Unknown Error") << code;
}

// The MAC addresses of this host's interfaces but loopback, as another part of the system tells
// them; "" for those that have none of six bytes.
std::vector<std::string> MacsOfTheSystem() {
  std::vector<std::string> macs;
  const int fd = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
  for (unsigned number = 1; number < 1000; ++number) {
    ifreq request{};
    if (if_indextoname(number, request.ifr_name) == nullptr) continue;
    if (ioctl(fd, SIOCGIFFLAGS, &request) != 0 || (request.ifr_flags & IFF_LOOPBACK) != 0) continue;
    if (ioctl(fd, SIOCGIFHWADDR, &request) != 0) continue;
    constexpr unsigned short kEthernet = 1;
    const auto* bytes = reinterpret_cast<const unsigned char*>(request.ifr_hwaddr.sa_data);
    char text[18] = "";
    if (request.ifr_hwaddr.sa_family == kEthernet)
      snprintf(text, sizeof text, "%02X:%02X:%02X:%02X:%02X:%02X", bytes[0], bytes[1], bytes[2],
               bytes[3], bytes[4], bytes[5]);
    macs.push_back(text);
  }
  close(fd);
  return macs;
}

std::string OwnName() {
  char name[256] = "";
  gethostname(name, sizeof name - 1);
  return name;
}

TEST(NetBiosAdapter, NumbersAreTheSystemsOrderWithoutLoopback) {
  const std::vector<std::string> macs = MacsOfTheSystem();
  NetBIOSCls netbios;
  std::string own = OwnName();
  const std::string shortName = own.substr(0, own.find('.'));
  for (char& c : own) c = static_cast<char>(toupper(c));
  std::int32_t error = -1;
  for (const std::string& name : {""s, "*"s, "    "s, "*               "s, own, shortName}) {
    for (std::size_t i = 0; i < macs.size(); ++i) {
      SCOPED_TRACE(name + " " + std::to_string(i));
      EXPECT_TRUE(netbios.GetMacAddress(static_cast<std::int16_t>(i), name, ":", error));
      EXPECT_EQ(error, 0);
      if (macs[i].empty()) continue;
      EXPECT_EQ(netbios.MacAddress(), macs[i]);
      EXPECT_EQ(netbios.AdapterType(), 0xFE);
    }
    const std::string last = netbios.MacAddress();
    EXPECT_FALSE(netbios.GetMacAddress(static_cast<std::int16_t>(macs.size()), name, ":", error));
    EXPECT_EQ(error, 0x23);
    EXPECT_EQ(netbios.MacAddress(), last);
  }
}

TEST(NetBiosAdapter, NumbersThatAreNone) {
  const DatagramServer::Answer answer = [](const std::string& request) -> Replies {
    return {NodeStatusReply{.id = request.substr(0, 2)}.Bytes()};
  };
  const auto server = peers::ServeOnOwnAddress(answer, 137);
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

class NetBiosRemote : public testing::Test {
 protected:
  void SetUp() override {
    if (!peers::ServeOnOwnAddress([](const auto&) { return Replies(); }, 137))
      GTEST_SKIP() << "port 137 of 127.0.0.0/8 may not be used here";
  }

  // From then on "box.test" is the server.
  DatagramServer& Serve(const DatagramServer::Answer& answer) {
    server_ = peers::ServeOnOwnAddress(answer, 137);
    root_.Put("etc/hosts", server_->Ip() + " box.test\n");
    return *server_;
  }

  bool Ask(std::int32_t& error, const std::string& divider = "-") {
    return netbios_->GetMacAddress(0, server_->Ip(), divider, error);
  }
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
  EXPECT_EQ(netbios_->RevMajor(), 3);
  EXPECT_EQ(netbios_->RevMinor(), 4);
  EXPECT_EQ(netbios_->AdapterType(), 0);
  EXPECT_EQ(netbios_->Duration(), 0x0506);
  EXPECT_EQ(netbios_->FrmrRecv(), 0x0708);
  EXPECT_EQ(netbios_->FrmrXmit(), 0x090A);
  EXPECT_EQ(netbios_->IframeRecvErr(), 0x0B0C);
  EXPECT_EQ(netbios_->XmitAborts(), 0x0D0E);
  EXPECT_EQ(netbios_->XmitSuccess(), 0x0F101112);
  EXPECT_EQ(netbios_->RecvSuccess(), 0x13141516);
  EXPECT_EQ(netbios_->IframeXmitErr(), 0x1718);
  EXPECT_EQ(netbios_->RecvBuffUnavail(), 0x191A);
  EXPECT_EQ(netbios_->FreeNcbs(), 0x1B1C);
  EXPECT_EQ(netbios_->MaxCfgNcbs(), 0x1D1E);
  EXPECT_EQ(netbios_->MaxNcbs(), 0x1F20);
  EXPECT_EQ(netbios_->PendingSess(), 0x2122);
  EXPECT_EQ(netbios_->MaxCfgSess(), 0x2324);
  EXPECT_EQ(netbios_->MaxSess(), 0x2526);
  EXPECT_EQ(netbios_->MaxSessPktSize(), 0x2728);
  EXPECT_EQ(netbios_->NameCount(), 2);
  const std::vector<std::string> requests = server_->Received();
  ASSERT_EQ(requests.size(), 1u);
  EXPECT_EQ(requests[0].substr(2), "\0\0\0\1\0\0\0\0\0\0"s + peers::AnyNode() + "\0\x21\0\1"s);
}

TEST_F(NetBiosRemote, DividerIsTheCalls) {
  Serve(GoodAnswer);
  std::int32_t error = -1;
  for (const auto& [divider, text] :
       {std::pair("-", kMac), {"", "000A959D6816"}, {"::", "00::0A::95::9D::68::16"}}) {
    EXPECT_TRUE(Ask(error, divider));
    EXPECT_EQ(netbios_->MacAddress(), text);
  }
}

TEST_F(NetBiosRemote, HostMayBeANameAndTheAdapterAnyNumber) {
  Serve(GoodAnswer);
  std::int32_t error = -1;
  for (const int adapter : {0, 1, 253}) {
    EXPECT_TRUE(netbios_->GetMacAddress(static_cast<std::int16_t>(adapter), "box.test", "", error));
    EXPECT_EQ(netbios_->MacAddress(), "000A959D6816");
  }
  EXPECT_TRUE(netbios_->GetMacAddress(0, "box.test       ", "", error)) << "filled with blanks";
}

TEST_F(NetBiosRemote, HostsThatAreNone) {
  for (const char* host : {"a..test", "255.255.255.255"}) {
    std::int32_t error = 0;
    EXPECT_FALSE(netbios_->GetMacAddress(0, host, "-", error));
    EXPECT_EQ(error, 0x14) << host;
  }
}

TEST_F(NetBiosRemote, RequestsThatTheSystemRefuses) {
  std::int32_t error = 0;
  EXPECT_FALSE(netbios_->GetMacAddress(0, "127.255.255.255", "-", error)) << "broadcast";
  EXPECT_EQ(error, 0x40);
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
  const TimePoint before = Now();
  EXPECT_EQ(ErrorOf([](const auto&) { return Replies(); }), 0x05);
  EXPECT_GE(Now() - before, seconds(4));
  EXPECT_LT(Now() - before, seconds(6));
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
  const std::string whole = NodeStatusReply().Bytes();
  const std::size_t kSizes[] = {0, 1, 2, 11, 12, 56, whole.size() - 1};
  for (const std::size_t size : kSizes) {
    EXPECT_EQ(ErrorOf([=](const std::string& request) -> Replies {
                return {ReplyTo(request).substr(0, size)};
              }),
              0x06)
        << size;
    EXPECT_EQ(server_->Received().size(), 1u) << "is not asked again";
  }
  EXPECT_EQ(ErrorOf([](const std::string& request) -> Replies { return {request}; }), 0x06);
  EXPECT_EQ(ErrorOf([](const std::string& request) -> Replies {
              return {request.substr(0, 2) + std::string(65'000, '\xFF')};
            }),
            0x06);
}

TEST_F(NetBiosRemote, PropertiesKeepTheLastSuccess) {
  ASSERT_EQ(ErrorOf(GoodAnswer), 0);
  EXPECT_EQ(ErrorOf([](const std::string& request) -> Replies { return {request}; }), 0x06);
  std::int32_t error = 0;
  EXPECT_FALSE(netbios_->GetMacAddress(0, "a..test", "", error));
  EXPECT_FALSE(netbios_->GetMacAddress(254, "*", "", error));
  EXPECT_FALSE(netbios_->GetRemoteMACAddress("127.0.0.1", ""));
  EXPECT_EQ(netbios_->MacAddress(), kMac);
  EXPECT_EQ(netbios_->XmitSuccess(), 0x0F101112);
  EXPECT_EQ(netbios_->NameCount(), 2);
}

class EndOfNetBios : public NetBiosRemote {
 protected:
  // Ends a query that waits for a reply, and one that looks a name up; without an object afterwards
  // it has been deleted.
  void EndEverywhere(const std::function<void()>& end, std::int32_t code = 0x0B) {
    Serve([](const auto&) { return Replies(); });
    PostWhen([&] { return server_->Count() > 0; }, end);
    EXPECT_EQ(End(server_->Ip()), code);
    if (netbios_) {
      EXPECT_EQ(ErrorOf(GoodAnswer), 0) << "what ended a query ends no other";
    }

    const auto silent = peers::ServeOnOwnAddress([](const auto&) { return Replies(); }, 53);
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

TEST_F(EndOfNetBios, StopWaitingFromTheLoop) {
  EndEverywhere([&] { netbios_->StopWaiting(); });
}

TEST_F(EndOfNetBios, KillFromTheLoop) {
  EndEverywhere([&] { netbios_->Kill(); });
}

TEST_F(EndOfNetBios, StopWaitingFromAThread) {
  EndEverywhere([&] { thread_ = std::thread([&] { netbios_->StopWaiting(); }); });
}

TEST_F(EndOfNetBios, KillOfASocketOfTheThread) {
  EndEverywhere([] { SocketCls().Kill(); });
}

TEST_F(EndOfNetBios, Deletion) {
  EndEverywhere([&] { netbios_.reset(); });
}

TEST_F(EndOfNetBios, OtherCallsAreRefusedMeanwhile) {
  EndEverywhere([&] {
    std::int32_t error = 0;
    EXPECT_FALSE(netbios_->GetMacAddress(0, "*", "-", error));
    EXPECT_EQ(error, 0x21);
    EXPECT_FALSE(netbios_->GetRemoteMACAddress("10.77.0.1", "-"));
    netbios_->StopWaiting();
  });
}

TEST_F(EndOfNetBios, OtherObjectsWorkMeanwhile) {
  EndEverywhere([&] {
    const auto server = peers::ServeOnOwnAddress(GoodAnswer, 137);
    NetBIOSCls other;
    std::int32_t error = -1;
    EXPECT_TRUE(other.GetMacAddress(0, server->Ip(), "-", error));
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
