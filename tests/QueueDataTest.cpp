// QueueData: what never blocks; the kinds of data that it and SendData take; NoDelay.
#include <netro/testkit/DnsReply.h>
#include <netro/testkit/DnsServer.h>

#include <array>
#include <limits>

#include "SocketTestKit.h"
#include "socket/SendQueue.h"
#include "tests/SystemKit.h"

namespace netro {
namespace {

using Events = std::vector<std::string>;

const std::string kMuch(16 * 1024 * 1024, 'm');  // more than the system has room for

// Connected to a server that reads nothing until it is told, with a queue that the system cannot
// take.
struct Queued : testing::Test {
  void SetUp() override {
    ASSERT_TRUE(ConnectAndWait(*socket_, server_.Port()));
    ASSERT_TRUE(PumpUntil([&] { return recorder_.Saw("SendComplete"); }));
    recorder_.events.clear();
    socket_->SendBufferLimit(kMuch.size());
    ASSERT_EQ(socket_->QueueData(kMuch), 0);
    Turn();
    ASSERT_GT(socket_->QueuedBytes(), 0u);
  }

  static void Turn() {
    for (int i = 0; i < 3; ++i) MessageLoop::ForThisThread().PumpMessages();
  }
  bool AwaitEvent(const std::string& event) {
    return PumpUntil([&] { return recorder_.Saw(event); });
  }

  SlowReader server_;
  std::unique_ptr<SocketCls> socket_ = std::make_unique<SocketCls>();
  Recorder recorder_{*socket_};
};

TEST_F(Queued, SendCompleteComesOnceWhenAllIsOut) {
  EXPECT_EQ(recorder_.events, Events());
  recorder_.hook = [&](const std::string&) { EXPECT_EQ(socket_->QueuedBytes(), 0u); };
  server_.Read();
  EXPECT_TRUE(AwaitEvent("SendComplete"));
  EXPECT_EQ(socket_->QueueData("end"), 0);
  EXPECT_EQ(recorder_.events, Events{"SendComplete"}) << "none inside the call";
  Turn();
  EXPECT_EQ(recorder_.events, (Events{"SendComplete", "SendComplete"}));
  socket_->Disconnect();
  EXPECT_TRUE(server_.Received() == kMuch + "end");
}

TEST_F(Queued, LimitIsExactAndARefusalTakesNothing) {
  constexpr auto kMost = std::numeric_limits<std::size_t>::max();
  socket_->SendBufferLimit(socket_->QueuedBytes() + 3);
  EXPECT_EQ(socket_->QueueData("four"), 10055);
  EXPECT_EQ(socket_->QueueData("two"), 0);
  EXPECT_EQ(socket_->QueueData('x'), 10055);
  EXPECT_EQ(socket_->QueueData(""), 0);
  socket_->SendBufferLimit(1);
  EXPECT_EQ(socket_->QueueData('x'), 10055);
  socket_->SendBufferLimit(kMost);
  const std::uint8_t byte = 0;
  EXPECT_EQ(socket_->QueueData(std::span(&byte, kMost / 2 + 1)), 10055) << "no such memory";
  server_.Read();
  EXPECT_TRUE(AwaitEvent("SendComplete"));
  socket_->Disconnect();
  EXPECT_TRUE(server_.Received() == kMuch + "two");
}

TEST_F(Queued, DisconnectDropsIt) {
  socket_->Disconnect();
  EXPECT_EQ(socket_->QueuedBytes(), 0u);
  server_.Read();
  EXPECT_LT(server_.Received().size(), kMuch.size());
  Turn();
  EXPECT_EQ(recorder_.events, Events());
}

TEST_F(Queued, DisconnectWhenSentLetsItGoOutFirst) {
  socket_->DisconnectWhenSent();
  Turn();
  EXPECT_EQ(socket_->State(), sockConnected) << "a peer that does not read holds it up";
  EXPECT_EQ(socket_->QueueData("x"), 10058);
  EXPECT_EQ(socket_->SendData("x"), 10058);
  recorder_.hook = [&](const std::string&) {
    EXPECT_EQ(socket_->SocketHandle(), 0);
    socket_.reset();
  };
  server_.Read();
  EXPECT_TRUE(AwaitEvent("SendComplete"));
  EXPECT_TRUE(server_.Received() == kMuch);
  EXPECT_EQ(recorder_.events, Events{"SendComplete"});
}

// How the owner learns that the connection broke: by Closed; by SendComplete if that was raised
// before, for a half-close. Once in both cases, and DisconnectWhenSent does what it promised.
class BrokenQueue : public Queued, public testing::WithParamInterface<std::tuple<bool, bool>> {};

TEST_P(BrokenQueue, IsDroppedAndToldOfOnce) {
  const auto [halfClosedBefore, toBeClosed] = GetParam();
  if (toBeClosed) socket_->DisconnectWhenSent();
  Events expected = {"Closed"};
  if (halfClosedBefore) {
    server_.HalfClose();
    EXPECT_TRUE(AwaitEvent("Closed"));
    EXPECT_GT(socket_->QueuedBytes(), 0u);
    expected.push_back("SendComplete");
  }
  server_.Reset();
  EXPECT_TRUE(PumpUntil([&] { return recorder_.events.size() == expected.size(); }));
  Turn();
  EXPECT_EQ(recorder_.events, expected);
  EXPECT_EQ(socket_->QueuedBytes(), 0u);
  EXPECT_EQ(socket_->LastSocketErr(), 10054);
  EXPECT_EQ(socket_->SocketHandle() == 0, toBeClosed);
  EXPECT_EQ(socket_->QueueData("x"), toBeClosed ? 10057 : 10054);
  Turn();
  EXPECT_EQ(recorder_.events, expected) << "what was refused completes nothing";
}
INSTANTIATE_TEST_SUITE_P(Ways, BrokenQueue, testing::Combine(testing::Bool(), testing::Bool()));

using QueueData = SocketTest;

TEST_F(QueueData, RefusesWhereNothingCanBeSent) {
  SocketCls closed, listening, datagrams;
  ASSERT_TRUE(listening.Listen("127.0.0.1"));
  datagrams.UseUDP(true);
  ASSERT_TRUE(datagrams.Listen("127.0.0.1"));
  EXPECT_EQ(closed.QueueData("x"), 10057);
  EXPECT_EQ(listening.QueueData("x"), 10045);
  EXPECT_EQ(datagrams.QueueData("x"), 10045);
  listening.DisconnectWhenSent();
  EXPECT_EQ(listening.SocketHandle(), 0);
}

// Before the connection is open, inside SendData, behind it: the order of the calls is kept.
TEST_F(QueueData, GoesOutInTheOrderOfTheCalls) {
  BytesServer server({{testkit::Stay()}});
  recorder.hook = [&](const std::string& event) {
    if (event == "Connect") {
      EXPECT_EQ(socket.QueueData("3"), 0);
    }
    EXPECT_TRUE(event == "Connect" || socket.QueuedBytes() == 0);
  };
  ASSERT_TRUE(socket.Connect("127.0.0.1", server.Port()));
  EXPECT_EQ(socket.QueueData("1"), 0);
  EXPECT_EQ(socket.QueuedBytes(), 1u);
  EXPECT_EQ(socket.SendData("2"), 0);
  EXPECT_EQ(socket.QueueData("4"), 0);
  socket.DisconnectWhenSent();
  EXPECT_TRUE(PumpUntil([&] { return socket.SocketHandle() == 0; }));
  EXPECT_EQ(server.Received(0), "1234");
}

TEST_F(QueueData, IsDroppedWhenTheConnectionFails) {
  const testkit::RefusingPort refusing;
  BytesServer server({{testkit::Stay()}});
  ASSERT_TRUE(socket.Connect("127.0.0.1", refusing.Port()));
  EXPECT_EQ(socket.QueueData("lost"), 0);
  socket.DisconnectWhenSent();
  EXPECT_TRUE(PumpUntil([&] { return recorder.Saw("Error"); }));
  EXPECT_EQ(recorder.events, Events{"Error"});
  ASSERT_TRUE(ConnectAndWait(socket, server.Port()));
  EXPECT_EQ(socket.QueueData("found"), 0);
  socket.DisconnectWhenSent();
  EXPECT_EQ(socket.SocketHandle(), 0) << "nothing was left to wait for";
  EXPECT_EQ(server.Received(0), "found");
}

// Queued before the prolog, while it looks the host up, and between its messages.
TEST_F(QueueData, WaitsForTheTunnel) {
  BytesServer proxy({{AwaitBytes(3), testkit::Send("\x05\0"s), AwaitBytes(10),
                      testkit::Send("\x05\0\0\x01\0\0\0\0\0\0"s), testkit::Stay()}});
  testkit::DnsServer names([](const std::string& query) -> testkit::DnsServer::Replies {
    using testkit::dns::Record;
    return {testkit::DnsReply(query).Answer(Record(testkit::dns::kQuestion, 1, "\x7F\0\0\1"s)).Bytes()};
  });
  socket.DNSURL("127.0.0.1:" + std::to_string(names.Port()));
  std::int32_t error = 0;
  recorder.hook = [&](const std::string& event) {
    if (event != "Connect") return;
    MessageLoop::ForThisThread().PostTask([&] { EXPECT_EQ(socket.QueueData("b"), 0); });
    EXPECT_TRUE(socket.Socks5Prolog(false, false, "target.test", 80, "", "", error)) << error;
    EXPECT_EQ(socket.QueuedBytes(), 2u);
  };
  ASSERT_TRUE(socket.Connect("127.0.0.1", proxy.Port()));
  EXPECT_EQ(socket.QueueData("a"), 0);
  EXPECT_TRUE(PumpUntil([&] { return recorder.Saw("SendComplete"); }));
  socket.Disconnect();
  EXPECT_EQ(proxy.Received(0), "\x05\x01\0\x05\x01\0\x01\x7F\0\0\x01\0\x50"s + "ab");
}

// A sender that queues its next block in each SendComplete: no recursion, nothing lost.
TEST_F(QueueData, MayBeCalledInSendComplete) {
  SlowReader server;
  server.Read();
  const std::string block(300'000, 'b');
  int depth = 0;
  int blocks = 0;
  recorder.hook = [&](const std::string& event) {
    if (event != "SendComplete" || blocks == 100) return;
    EXPECT_EQ(++depth, 1);
    EXPECT_EQ(socket.QueueData(block), 0);
    if (++blocks == 100) socket.DisconnectWhenSent();
    --depth;
  };
  ASSERT_TRUE(socket.Connect("127.0.0.1", server.Port()));
  EXPECT_TRUE(PumpUntil([&] { return blocks == 100 && socket.SocketHandle() == 0; }));
  EXPECT_EQ(server.Received().size(), 100 * block.size());
}

struct Wrapped {
  operator Bytes() const { return {'W'}; }
};

// Whatever can be given, and what it is on the wire.
TEST(KindsOfData, GoOutAsDocumented) {
  const std::string text = "a\0b"s;
  const Bytes bytes = {0xFF, 0};
  const std::array<std::uint8_t, 2> array = {1, 2};
  const char buffer[8] = "buffer";
  const std::uint8_t raw[2] = {3, 4};
  const auto sendAll = [](const auto& send, const auto&... data) { (send(data), ...); };
  for (const bool queue : {false, true}) {
    BytesServer server({{testkit::Stay()}});
    SocketCls socket;
    ASSERT_TRUE(ConnectAndWait(socket, server.Port()));
    sendAll(
        [&](const auto& data) {
          EXPECT_EQ(queue ? socket.QueueData(data) : socket.SendData(data), 0);
        },
        text, std::string_view(text), "literal", buffer, static_cast<const char*>(nullptr), bytes,
        std::span(bytes), array, raw, 'c', std::uint8_t{7}, static_cast<signed char>(-8), short{-9},
        static_cast<unsigned short>(9), -12, 12u, std::numeric_limits<long>::min(),
        std::numeric_limits<unsigned long>::max(), -13LL, 13ULL, true, 2.5, 0.25f, Wrapped());
    socket.Disconnect();
    EXPECT_EQ(server.Received(0), "a\0ba\0bliteralbuffer\xFF\0\xFF\0\1\2\3\4"s + "c\7-8-99-1212" +
                                      std::to_string(std::numeric_limits<long>::min()) +
                                      std::to_string(std::numeric_limits<unsigned long>::max()) +
                                      "-1313" + "12.50.25W");
  }
}

TEST(SendQueue, StaysCheapAndInOrderInSmallPieces) {
  SendQueue queue;
  std::size_t added = 0;
  std::size_t taken = 0;
  for (; taken < 3'000'000; ++added) {
    const auto byte = static_cast<std::uint8_t>(added % 251);
    queue.Reserve(1);
    queue.Add({&byte, 1});
    if (added < 1'000'000) continue;
    ASSERT_EQ(queue.Front(1)[0], taken++ % 251);
    queue.Pop(1);
  }
  EXPECT_EQ(queue.Size(), 1'000'000u);
  EXPECT_EQ(queue.Front(5'000'000).size(), 1'000'000u);
}

TEST(NoDelay, HoldsForEveryConnectionAndChangesAnOpenOne) {
  SocketCls listener, accepted, client;
  Recorder recorder(listener);
  recorder.hook = [&](const std::string&) { accepted.Accept(recorder.request); };
  listener.NoDelay(true);
  ASSERT_TRUE(listener.Listen("127.0.0.1"));
  listener.NoDelay(true);
  const auto connect = [&] {
    accepted.Disconnect();
    return ConnectAndWait(client, listener.LocalPort()) &&
           PumpUntil([&] { return accepted.State() == sockConnected; });
  };
  ASSERT_TRUE(connect());
  EXPECT_FALSE(HasNoDelay(client.SocketHandle()));
  EXPECT_FALSE(HasNoDelay(accepted.SocketHandle())) << "not the listener's";
  client.NoDelay(true);
  accepted.NoDelay(true);
  EXPECT_TRUE(HasNoDelay(client.SocketHandle()));
  ASSERT_TRUE(connect());
  EXPECT_TRUE(HasNoDelay(client.SocketHandle()));
  EXPECT_TRUE(HasNoDelay(accepted.SocketHandle()));
  client.NoDelay(false);
  EXPECT_FALSE(HasNoDelay(client.SocketHandle()));
}

}  // namespace
}  // namespace netro
