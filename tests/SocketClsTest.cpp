// SocketCls: connecting, receiving, closing, accepting, datagrams; and UDPCls.
#include <netro/UDPCls.h>

#include "DnsTestKit.h"
#include "SocketTestKit.h"
#include "platform/Address.h"
#include "platform/Sockets.h"
#include "socket/SocketErrors.h"
#include "socket/SocketModule.h"
#include "testkit/Sockets.h"
#include "tests/SystemKit.h"

namespace netro {
namespace {

using Events = std::vector<std::string>;

// A label of 64 letters: no resolver asks the network for it.
constexpr const char* kNoName = "xxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxx";

using Sockets = SocketTest;

TEST_F(Sockets, ConnectReportsUnderWayAndTheOutcomeLater) {
  BytesServer server({{testkit::Stay()}});
  ASSERT_TRUE(socket.Connect("127.0.0.1", server.Port()));
  EXPECT_EQ(socket.State(), sockConnecting);
  EXPECT_TRUE(recorder.events.empty()) << "an event came inside the call that started it";
  ASSERT_TRUE(PumpUntil([&] { return recorder.events.size() >= 2; }));
  EXPECT_EQ(recorder.events, (Events{"Connect", "SendComplete"}));
  EXPECT_EQ(recorder.states[0], sockConnected);
  EXPECT_EQ(socket.RemoteIP(), "127.0.0.1");
  EXPECT_EQ(socket.RemotePort(), server.Port());
  EXPECT_EQ(socket.LocalIP(), "127.0.0.1");
  EXPECT_GT(socket.LocalPort(), 0);
}

TEST_F(Sockets, FailedConnectIsAnErrorEventAndReleasesTheHandle) {
  const testkit::RefusingPort port;
  const struct {
    const char* host;
    std::int32_t port, error;
  } cases[] = {{"127.0.0.1", port.Port(), 10061},
               {"224.0.0.1", 9, 10051}};  // a stream to a group: refused at once
  for (const auto& c : cases) {
    SocketCls client;
    Recorder seen(client);
    ASSERT_TRUE(client.Connect(c.host, c.port));
    EXPECT_TRUE(seen.events.empty());
    ASSERT_TRUE(PumpUntil([&] { return !seen.events.empty(); }));
    EXPECT_EQ(seen.events, (Events{"Error"}));
    EXPECT_EQ(seen.error, c.error);
    EXPECT_EQ(seen.description, SocketErrorText(c.error));
    EXPECT_EQ(seen.states[0], sockClosed);
    EXPECT_EQ(client.LastSocketErr(), c.error);
    EXPECT_EQ(client.SocketHandle(), 0);
  }
}

TEST_F(Sockets, ConnectRefusesWhatIsNoDestination) {
  struct {
    const char* host;
    std::int32_t port, error, dnsError;
  } const cases[] = {
      {"", 80, 11001, 59},         {"255.255.255.255", 80, 11001, 59},
      {kNoName, 80, 11001, 59},    {"127.0.0.1", 65536, 10022, 0},
      {"127.0.0.1", -1, 10022, 0},
  };
  for (const auto& c : cases) {
    SocketCls client;
    EXPECT_FALSE(client.Connect(c.host, c.port)) << c.host;
    EXPECT_EQ(client.LastSocketErr(), c.error) << c.host;
    EXPECT_EQ(client.DNSLastErr(), c.dnsError) << c.host;
    EXPECT_EQ(client.DNSLastErrMsg(), c.dnsError == 59 ? "No DNS Entries found." : "") << c.host;
    EXPECT_EQ(client.State(), sockClosed);
    EXPECT_EQ(client.SocketHandle(), 0);
  }
  EXPECT_TRUE(SocketCls().Connect("127.0.0.1", 65535));
}

TEST_F(Sockets, OneNotificationDrainsTheSocketInChunks) {
  BytesServer server({{Send(std::string(40'000, 'x')), testkit::Stay()}});
  socket.SocketIsBusy(true);
  ASSERT_TRUE(ConnectAndWait(socket, server.Port()));
  while (Unread(socket.SocketHandle()) < 40'000) std::this_thread::yield();
  socket.SocketIsBusy(false);
  MessageLoop::ForThisThread().PumpMessages();
  EXPECT_EQ(recorder.sizes, (std::vector<std::size_t>{16'000, 16'000, 8'000}));
  EXPECT_EQ(recorder.from, "127.0.0.1");
}

TEST_F(Sockets, ClosedComesOnceAfterAllDataAndKeepsTheHandle) {
  BytesServer server({{Send("last words"), testkit::HalfClose(), AwaitText("answer")}});
  ASSERT_TRUE(ConnectAndWait(socket, server.Port()));
  ASSERT_TRUE(PumpUntil([&] { return recorder.Saw("Closed"); }));
  EXPECT_EQ(recorder.received, "last words");
  EXPECT_EQ(recorder.events.back(), "Closed");
  EXPECT_EQ(recorder.states.back(), sockClosed);
  EXPECT_TRUE(socket.ClosedByClient());
  EXPECT_NE(socket.SocketHandle(), 0);
  EXPECT_EQ(socket.SendData("answer"), 0) << "a half-close still lets us send";
  EXPECT_TRUE(server.AwaitReceived(0, "answer"));
}

TEST_F(Sockets, ResetOfAnOpenConnectionIsClosedAndNotError) {
  BytesServer server({{AwaitText("x"), testkit::Reset()}});
  ASSERT_TRUE(ConnectAndWait(socket, server.Port()));
  PumpUntil([&] { return recorder.Saw("SendComplete"); });
  socket.Kill();
  EXPECT_EQ(socket.SendData("x"), 0) << "a Kill of before is not one of now";
  ASSERT_TRUE(PumpUntil([&] { return recorder.Saw("Closed"); }));
  EXPECT_FALSE(recorder.Saw("Error"));
}

TEST_F(Sockets, BusyOwnerGetsItsDataLaterAndTheCloseAfterIt) {
  BytesServer server({{Send("data"), testkit::HalfClose(), testkit::Stay()}});
  socket.SocketIsBusy(true);
  ASSERT_TRUE(ConnectAndWait(socket, server.Port()));
  while (Unread(socket.SocketHandle()) < 4) std::this_thread::yield();
  for (int i = 0; i < 3; ++i) MessageLoop::ForThisThread().PumpMessages();
  EXPECT_FALSE(recorder.Saw("DataArrival"));
  EXPECT_FALSE(recorder.Saw("Closed"));
  socket.SocketIsBusy(false);
  ASSERT_TRUE(PumpUntil([&] { return recorder.Saw("Closed"); }));
  EXPECT_EQ(recorder.received, "data");
}

TEST_F(Sockets, CloseWithoutDataReachesABusyOwner) {
  BytesServer server({{testkit::Close()}});
  socket.SocketIsBusy(true);
  ASSERT_TRUE(socket.Connect("localhost", server.Port()));
  EXPECT_TRUE(PumpUntil([&] { return recorder.Saw("Closed"); }));
}

TEST_F(Sockets, DisconnectClearsEverythingAndRaisesNothing) {
  BytesServer server({{testkit::Stay()}});
  ASSERT_TRUE(ConnectAndWait(socket, server.Port()));
  recorder.events.clear();
  socket.Disconnect();
  MessageLoop::ForThisThread().PumpMessages();
  EXPECT_TRUE(recorder.events.empty());
  EXPECT_EQ(socket.SocketHandle(), 0);
  EXPECT_EQ(socket.State(), sockClosed);
  EXPECT_EQ(socket.LocalIP() + socket.RemoteIP(), "");
  EXPECT_EQ(socket.LocalPort() + socket.RemotePort(), 0);
}

TEST_F(Sockets, AcceptsEveryWaitingConnectionOneByOne) {
  SocketCls listener;
  Recorder seen(listener);
  ASSERT_TRUE(listener.Listen("127.0.0.1"));
  EXPECT_EQ(listener.State(), sockListening);
  std::vector<std::unique_ptr<SocketCls>> accepted;
  seen.hook = [&](const std::string&) {
    EXPECT_EQ(seen.request, listener.SocketHandle());
    accepted.push_back(std::make_unique<SocketCls>());
    accepted.back()->Accept(seen.request);
    EXPECT_EQ(accepted.back()->State(), sockConnected);
    EXPECT_EQ(accepted.back()->LocalPort(), listener.LocalPort());
  };
  std::vector<std::unique_ptr<SocketCls>> clients;
  for (int i = 0; i < 4; ++i) {
    clients.push_back(std::make_unique<SocketCls>());
    ASSERT_TRUE(clients.back()->Connect("127.0.0.1", listener.LocalPort()));
  }
  ASSERT_TRUE(PumpUntil([&] { return accepted.size() == 4; }));
  Recorder receiver(*accepted[2]);
  ASSERT_TRUE(PumpUntil([&] { return clients[2]->State() == sockConnected; }));
  for (const auto& client : clients) client->SendData("hello");
  EXPECT_TRUE(PumpUntil([&] { return receiver.received == "hello"; }));
}

TEST_F(Sockets, ListenTellsWhyItFailed) {
  SocketCls first;
  ASSERT_TRUE(first.Listen("127.0.0.1"));
  const std::tuple<const char*, std::int32_t, std::int32_t> cases[] = {
      {"127.0.0.1", first.LocalPort(), 10048},
      {"192.0.2.1", 0, 10049},
      {"nonsense", 0, 10022},
      {"127.0.0.1", 70'000, 10022},
  };
  for (const auto& [ip, port, error] : cases) {
    SocketCls second;
    second.LocalPort(port);
    EXPECT_FALSE(second.Listen(ip)) << ip;
    EXPECT_EQ(second.LastSocketErr(), error) << ip;
    EXPECT_EQ(second.SocketHandle(), 0);
    second.Accept(12345);
    EXPECT_EQ(second.LastSocketErr(), 10038);
    EXPECT_EQ(second.State(), sockClosed);
  }
}

TEST_F(Sockets, DatagramsArriveOneByOneAndAnEmptyOneClosesNothing) {
  socket.UseUDP(true);
  ASSERT_TRUE(socket.Listen("127.0.0.1"));
  std::int32_t handle = 0;
  ASSERT_EQ(CreateSocket(SocketKind::Datagram, AddressFamily::IPv4, handle), 0);
  ASSERT_EQ(SetPeer(handle, {*ParseAddress("127.0.0.1"), socket.LocalPort()}), 0);
  for (const std::string& text :
       {std::string("one"), std::string(), std::string(20'000, 'x'), std::string("two")}) {
    testkit::SendTo(handle, text);
  }
  EXPECT_TRUE(PumpUntil([&] { return recorder.received == "onetwo"; }));
  EXPECT_EQ(recorder.sizes, (std::vector<std::size_t>{3, 3}));
  EXPECT_EQ(socket.LastSocketErr(), 10040) << "the one that was too long";
  EXPECT_EQ(socket.RemotePort(), LocalAddress(handle).port);
  EXPECT_EQ(recorder.from, "127.0.0.1");
  EXPECT_FALSE(recorder.Saw("Closed"));
  netro::CloseSocket(handle);
}

TEST_F(Sockets, RemovedSocketHearsNothing) {
  BytesServer server({{Send("x"), testkit::Stay()}});
  socket.SocketIsBusy(true);
  ASSERT_TRUE(ConnectAndWait(socket, server.Port()));
  PumpUntil([&] { return recorder.Saw("SendComplete"); });
  recorder.events.clear();
  socket.SocketIsBusy(false);
  socket.RemoveSocket();
  while (Unread(socket.SocketHandle()) < 1) std::this_thread::yield();
  MessageLoop::ForThisThread().PumpMessages();
  EXPECT_TRUE(recorder.events.empty());
}

TEST_F(Sockets, WindowProcTurnsCodesIntoEvents) {
  socket.WindowProc(999, std::string("10060"));
  EXPECT_EQ(socket.LastSocketErr(), 10060);
  socket.WindowProc(1, Bytes{'a'});
  socket.WindowProc(2);
  socket.WindowProc(8);
  socket.WindowProc(32);
  socket.WindowProc(77);
  EXPECT_EQ(recorder.events,
            (Events{"Error", "DataArrival", "SendComplete", "ConnectionRequest", "Closed"}));
}

TEST(SocketModule, LastObjectOfAThreadReleasesEveryStartUp) {
  std::thread([] {
    const auto module = SocketModule::ForThread();
    const testkit::RefusingPort port;
    {
      SocketCls first;
      SocketCls second;
      for (int i = 0; i < 5; ++i) first.Connect("127.0.0.1", port.Port());
      second.Listen("127.0.0.1");
      EXPECT_EQ(module->StartUpCount(), 8);
      EXPECT_EQ(module->SocketCount(), 2u);
      EXPECT_EQ(first.GetSockInfo(4) + "." + first.GetSockInfo(5), "2.0");
    }
    EXPECT_EQ(module->StartUpCount(), 0);
    EXPECT_EQ(module->SocketCount(), 0u);
  }).join();
}

// The edges of the ranges, and what has no text.
TEST(SocketErrors, TextsComeFromTheRightTable) {
  const std::pair<std::int32_t, const char*> cases[] = {
      {0, "Success"},
      {21, "BADALG. Algorithm not supported."},
      {56, "Can not retrieve data from DNS server."},
      {60, "Process canceled by user request."},
      {9000, "Proxy SOCKS. OK"},
      {10002, "Command Timed Out"},
      {10004, "Interrupted Function Call. A blocking operation was cancelled."},
      {10124, "Timeout. DNS server does not answer."},
      {11005, "Unknown time stamp received"},
      {11, "Unknown Error# 11."},
      {-5, "Unknown Error# -5."},
      {10128, "Unknown Error# 10128."},
      {20028, "No space left on device"},
  };
  for (const auto& [number, text] : cases) EXPECT_EQ(SocketErrorText(number), text) << number;
}

TEST(HostHelpers, AddressesAndFacts) {
  SocketCls socket;
  EXPECT_EQ(socket.LongAddrToIP(0), "");
  EXPECT_EQ(socket.LongAddrToIP(-1), "");
  EXPECT_EQ(socket.IPToLongAddr("127.0.0.1"), 0x0100007F);
  EXPECT_EQ(socket.LongAddrToIP(0x0100007F), "127.0.0.1");
  for (const char* text : {"255.255.255.255", "", "host", "1.2.3.256", "1.2.3.4 x", "1.2.3.4.5"})
    EXPECT_EQ(socket.IPToLongAddr(text), -1) << text;
  EXPECT_FALSE(socket.LocalHostName().empty());
  const auto ips = socket.LocalIPs();
  ASSERT_FALSE(ips.empty());
  EXPECT_EQ(ips.back(), "127.0.0.1");
  EXPECT_EQ(socket.GetSockInfo(0) + socket.GetSockInfo(8), "");
  for (int what = 1; what <= 7; ++what) EXPECT_NE(socket.GetSockInfo(what), "") << what;
}

TEST(HostHelpers, ReachabilityAsksTheNetwork) {
  SocketCls socket;
  EXPECT_FALSE(socket.IsIPReachable("not an address"));
  if (!socket.IsIPReachable("127.0.0.1")) GTEST_SKIP() << "the system allows this program no echo";
  EXPECT_TRUE(socket.IsIPReachable("::1"));
  EXPECT_FALSE(socket.IsIPReachable("ff02::1"));
}

struct UdpCls : testing::Test {
  void SetUp() override {
    udp_->URL("127.0.0.1");
    udp_->Port(peer_.Port());
  }

  DatagramServer peer_{[](const std::string& text) -> DatagramServer::Replies {
    if (text == "question") return {{"reply"}};
    if (text == "several?") return {{"one"}, {std::string(60'000, 'l')}};
    return {};
  }};
  std::unique_ptr<UDPCls> udp_ = std::make_unique<UDPCls>();
  std::int32_t error_ = 77;
};

TEST_F(UdpCls, LastByteStaysHereAndLongDataIsCut) {
  const std::pair<std::size_t, std::vector<std::size_t>> cases[] = {
      {0, {}}, {1, {}}, {2, {1}}, {4096, {4095}}, {4097, {4096}}, {10'000, {4096, 4096, 1807}}};
  for (const auto& [given, sent] : cases) {
    const std::size_t before = peer_.Received().size();
    ASSERT_TRUE(udp_->UPDConnect(error_));
    std::string text(given, 'a');
    for (std::size_t i = 0; i < text.size(); ++i) text[i] = static_cast<char>('a' + i / 4096);
    EXPECT_TRUE(udp_->UDPSendByteArr(Bytes(text.begin(), text.end()), error_));
    EXPECT_EQ(error_, 0);
    const auto received = peer_.Received();
    ASSERT_EQ(received.size() - before, sent.size()) << given;
    for (std::size_t i = 0; i < sent.size(); ++i)
      EXPECT_EQ(received[before + i], text.substr(i * 4096, sent[i]));
  }
}

TEST_F(UdpCls, RepliesComeOneByOneWithOneByteMore) {
  EXPECT_EQ(udp_->UDPQuery("question!", error_), std::string("reply\0", 6));
  EXPECT_EQ(error_, 0);
  EXPECT_EQ(peer_.Received().at(0), "question");
  EXPECT_FALSE(udp_->UDPSendString("more", error_)) << "a query closes when it is done";
  EXPECT_EQ(error_, 10057);
  ASSERT_TRUE(udp_->UPDConnect(error_));
  ASSERT_TRUE(udp_->UDPSendString("several?!", error_));
  EXPECT_EQ(peer_.Received().at(1), "several?") << "and so the replies are there";
  udp_->RetryCount(1);
  EXPECT_EQ(udp_->UDPPollString(error_), std::string("one\0", 4));
  EXPECT_EQ(udp_->UDPPollString(error_).size(), 60'001u);
  EXPECT_EQ(udp_->UDPPollString(error_), "");
  EXPECT_EQ(error_, 10002);
}

TEST_F(UdpCls, SilenceEndsAfterAllPauses) {
  ASSERT_TRUE(udp_->UPDConnect(error_));
  const RunningClock clock([] { return true; });
  const Takes time(milliseconds(999), milliseconds(2500));
  EXPECT_EQ(udp_->UDPPollString(error_), "");
  EXPECT_EQ(error_, 10002);
}

TEST_F(UdpCls, KillEndsSendAndPoll) {
  auto& loop = MessageLoop::ForThisThread();
  ASSERT_TRUE(udp_->UPDConnect(error_));
  loop.PostTask([&] { udp_->Kill(); });
  EXPECT_FALSE(udp_->UDPSendString("xx", error_));
  EXPECT_EQ(error_, 9999);
  std::thread stopper;
  loop.PostTask([&] { stopper = std::thread([&] { udp_->StopWaiting(); }); });
  udp_->RetryPauseMilliSeconds(60'000);
  EXPECT_EQ(udp_->UDPPollString(error_), "");
  EXPECT_EQ(error_, 9999);
  stopper.join();
  EXPECT_TRUE(udp_->UDPSendString("yy", error_)) << "a Kill of before is not one of now";
}

TEST_F(UdpCls, DeletionAndReentryInsideAreSafe) {
  auto& loop = MessageLoop::ForThisThread();
  ASSERT_TRUE(udp_->UPDConnect(error_));
  std::int32_t inner = 0;
  loop.PostTask([&] {
    EXPECT_FALSE(udp_->UDPDisconnect(inner));
    loop.PostTask([&] { udp_.reset(); });
  });
  udp_->RetryPauseMilliSeconds(60'000);
  EXPECT_EQ(udp_->UDPPollString(error_), "");
  EXPECT_EQ(inner, 10036);
  EXPECT_EQ(error_, 9999);
  EXPECT_EQ(udp_, nullptr);
}

TEST_F(UdpCls, ConnectTellsWhatIsWrong) {
  const std::tuple<std::string, std::int32_t, std::int32_t> cases[] = {
      {"255.255.255.255", 9, 10013},
      {"", 9, 11001},
      {std::string(64, 'x'), 9, 11001},
      {"127.0.0.1", 65'536, 10022}};
  for (const auto& [url, port, error] : cases) {
    udp_->URL(url);
    udp_->Port(port);
    EXPECT_FALSE(udp_->UPDConnect(error_)) << url;
    EXPECT_EQ(error_, error) << url;
    EXPECT_FALSE(udp_->TranslateErrorMsg(error_).empty());
  }
  udp_->URL("255.255.255.255");
  udp_->Port(9);
  udp_->AllowBroadcast(true);
  EXPECT_TRUE(udp_->UPDConnect(error_));
  EXPECT_TRUE(udp_->UDPDisconnect(error_));
}

}  // namespace
}  // namespace netro
