// SendData: blocking sends, cancellation from everywhere, and sinks that do the unexpected.
#include <csignal>

#include "SocketTestKit.h"
#include "socket/SocketModule.h"

namespace netro {
namespace {

const std::string kMuch(64 * 1024 * 1024, 'm');

struct BlockedSend : testing::Test {
  void SetUp() override { ASSERT_TRUE(ConnectAndWait(*socket_, server_.Port())); }

  // Runs `action` on this thread once the send below it is blocked.
  void WhenBlocked(std::function<void()> action) {
    auto& loop = MessageLoop::ForThisThread();
    timer_ = loop.SetTimer(1, [this, &loop, action = std::move(action)] {
      if (!SocketModule::ForThread()->SendBlocked()) return;
      loop.KillTimer(timer_);
      action();
    });
  }

  SlowReader server_;
  std::unique_ptr<SocketCls> socket_ = std::make_unique<SocketCls>();
  std::int32_t timer_ = 0;
};

TEST_F(BlockedSend, TimesOutAfterSixtySeconds) {
  WhenBlocked([] { AdvanceClockForTests(std::chrono::seconds(60)); });
  EXPECT_EQ(socket_->SendData(kMuch), 10002);
}

TEST_F(BlockedSend, StopWaitingOnAnotherSocketDoesNotEndItAndKillDoes) {
  SocketCls other;
  bool stoppedOther = false;
  WhenBlocked([&] {
    other.StopWaiting();
    stoppedOther = true;
    MessageLoop::ForThisThread().PostTask([&] {
      EXPECT_EQ(socket_->SendData("x"), 10036) << "a second one inside";
      socket_->StopWaiting();
    });
  });
  EXPECT_EQ(socket_->SendData(kMuch), 9999);
  EXPECT_TRUE(stoppedOther);
  WhenBlocked([&] { other.Kill(); });
  EXPECT_EQ(socket_->SendData(kMuch), 9999);
}

SocketCls* g_signalled = nullptr;

TEST_F(BlockedSend, ThreadsAndSignalHandlersMayStopIt) {
  std::thread stopper;
  WhenBlocked([&] { stopper = std::thread([&] { socket_->StopWaiting(); }); });
  EXPECT_EQ(socket_->SendData(kMuch), 9999);
  stopper.join();
  g_signalled = socket_.get();
  std::signal(SIGTERM, [](int) { g_signalled->Kill(); });
  WhenBlocked([] { std::raise(SIGTERM); });
  EXPECT_EQ(socket_->SendData(kMuch), 9999);
  std::signal(SIGTERM, SIG_DFL);
  WhenBlocked([&] { socket_.reset(); });
  EXPECT_EQ(socket_->SendData(kMuch), 9999);
  EXPECT_EQ(socket_, nullptr);
}

// The send ends in vain; the new connection is not held up by it and gets nothing of its rest.
TEST_F(BlockedSend, ReconnectInsideIsAllowedOnceTheConnectionIsOver) {
  BytesServer second({{testkit::Stay()}});
  Recorder recorder(*socket_);
  recorder.hook = [&](const std::string& event) {
    if (event == "Connect") {
      EXPECT_EQ(socket_->SendData("hello"), 0);
    }
    if (event == "Closed") {
      EXPECT_TRUE(socket_->Connect("127.0.0.1", second.Port()));
    }
  };
  WhenBlocked([&] {
    EXPECT_FALSE(socket_->Connect("127.0.0.1", second.Port()));
    EXPECT_EQ(socket_->LastSocketErr(), 10036) << "the connection is still open";
    server_.HalfClose();
  });
  EXPECT_EQ(socket_->SendData(kMuch), 10057);
  EXPECT_TRUE(PumpUntil([&] { return recorder.Saw("Connect"); }));
  socket_->Disconnect();
  EXPECT_EQ(second.Received(0), "hello");
}

TEST_F(BlockedSend, ReconnectInsideIsAllowedAfterDisconnect) {
  BytesServer second({{testkit::Stay()}});
  WhenBlocked([&] {
    socket_->Disconnect();
    EXPECT_TRUE(socket_->Connect("127.0.0.1", second.Port()));
    EXPECT_EQ(socket_->QueueData("hello"), 0);
  });
  EXPECT_EQ(socket_->SendData(kMuch), 10057);
  EXPECT_TRUE(PumpUntil([&] { return socket_->State() == sockConnected; }));
  EXPECT_TRUE(PumpUntil([&] { return socket_->QueuedBytes() == 0; }));
  socket_->Disconnect();
  EXPECT_EQ(second.Received(0), "hello");
}

// Nothing of the first connection holds up what takes its place.
TEST_F(BlockedSend, AcceptInsideMakesASocketThatSends) {
  SocketCls listener, client;
  Recorder recorder(listener);
  Recorder received(client);
  ASSERT_TRUE(listener.Listen("127.0.0.1"));
  recorder.hook = [&](const std::string&) {
    socket_->Accept(recorder.request);
    EXPECT_EQ(socket_->QueueData("queued "), 0);
    EXPECT_EQ(socket_->SendData("sent"), 0);
  };
  WhenBlocked([&] { EXPECT_TRUE(client.Connect("127.0.0.1", listener.LocalPort())); });
  EXPECT_EQ(socket_->SendData(kMuch), 10057);
  EXPECT_TRUE(PumpUntil([&] { return received.received == "queued sent"; })) << received.received;
}

// What is behind the queue stays unsent when the queue does not get out in time.
TEST_F(BlockedSend, BehindAQueueItLeavesTheQueueAsItIs) {
  const std::string queued = kMuch.substr(0, 16 * 1024 * 1024);
  socket_->SendBufferLimit(queued.size());
  ASSERT_EQ(socket_->QueueData(queued), 0);
  WhenBlocked([] { AdvanceClockForTests(std::chrono::seconds(60)); });
  EXPECT_EQ(socket_->SendData("late"), 10002);
  WhenBlocked([&] { socket_->StopWaiting(); });
  EXPECT_EQ(socket_->SendData("cancelled"), 9999);
  WhenBlocked([&] { server_.Read(); });
  EXPECT_EQ(socket_->SendData("end"), 0);
  EXPECT_EQ(socket_->QueuedBytes(), 0u);
  socket_->Disconnect();
  EXPECT_TRUE(server_.Received() == queued + "end");
}

TEST(SendData, ReconnectInErrorIsAllowedInside) {
  const testkit::RefusingPort refusing;
  BytesServer second({{testkit::Stay()}});
  SocketCls socket;
  Recorder recorder(socket);
  recorder.hook = [&](const std::string& event) {
    if (event == "Error") {
      EXPECT_TRUE(socket.Connect("127.0.0.1", second.Port()));
    }
  };
  ASSERT_TRUE(socket.Connect("127.0.0.1", refusing.Port()));
  EXPECT_EQ(socket.SendData("x"), 10057);
  EXPECT_TRUE(PumpUntil([&] { return socket.State() == sockConnected; }));
  socket.Disconnect();
  EXPECT_EQ(second.Received(0), "");
}

TEST(SendData, LargeDataArrivesWhole) {
  testkit::LoopbackServer server([](testkit::Connection& connection, std::size_t) {
    std::string received;
    while (received.size() < kMuch.size() && connection.Read(received)) continue;
    connection.Send(received == kMuch ? "done" : "damaged");
  });
  SocketCls socket;
  Recorder recorder(socket);
  ASSERT_TRUE(ConnectAndWait(socket, server.Port()));
  EXPECT_EQ(socket.SendData(""), 0);
  EXPECT_EQ(socket.SendData(kMuch), 0);
  EXPECT_TRUE(PumpUntil([&] { return recorder.received == "done"; }));
  EXPECT_EQ(SocketCls().SendData("x"), 10057);
}

// Each answer arrives inside the pump of the send before it. Sending there was once refused, and
// with many busy sockets the pumps nested until the stack ran out.
TEST(SendData, EchoesMayArriveInsideTheSend) {
  testkit::LoopbackServer echo([](testkit::Connection& connection, std::size_t) {
    std::string block;
    while (connection.Read(block) && connection.Send(block)) block.clear();
  });
  constexpr int kSockets = 100;
  constexpr int kRounds = 50;
  int answered = 0;
  Crowd crowd;
  const auto answer = [&](SocketCls& socket, Recorder& recorder) {
    recorder.hook = [&](const std::string& event) {
      if (event != "DataArrival" || recorder.received.size() > kRounds) return;
      ++answered;
      EXPECT_EQ(socket.SendData("x"), 0);
    };
  };
  ASSERT_TRUE(crowd.Connect(kSockets, echo.Port(), answer));
  for (const auto& socket : crowd.sockets) ASSERT_EQ(socket->SendData("x"), 0);
  EXPECT_TRUE(PumpUntil([&] { return answered == kSockets * kRounds; })) << answered;
}

// Every socket's handler sends to a peer that reads only when all are blocked: the sends nest, and
// each waits for the ones above it.
TEST(SendData, BlockedSendsMayNestDeeply) {
  constexpr int kSockets = 130;
  std::atomic<bool> mayRead{false};
  testkit::LoopbackServer server([&](testkit::Connection& connection, std::size_t) {
    connection.Send("go");
    while (!mayRead && connection.Pause(5ms)) continue;
    std::string received;
    connection.ReadToEnd(received);
  });
  const std::string much(5 * 1024 * 1024, 'm');
  int sent = 0;
  int depth = 0;
  int deepest = 0;
  Crowd crowd;
  const auto sendMuch = [&](SocketCls& socket, Recorder& recorder) {
    socket.SocketIsBusy(true);
    recorder.hook = [&](const std::string& event) {
      if (event != "DataArrival") return;
      deepest = std::max(deepest, ++depth);
      if (depth == 50) mayRead = true;
      if (socket.SendData(much) == 0) ++sent;
      --depth;
    };
  };
  ASSERT_TRUE(crowd.Connect(kSockets, server.Port(), sendMuch));
  for (const auto& socket : crowd.sockets) socket->SocketIsBusy(false);
  EXPECT_TRUE(PumpUntil([&] { return sent == kSockets; })) << sent;
  EXPECT_GE(deepest, 50);
  EXPECT_LE(deepest, 110);
}

// A peer that never stops sending must not keep the read loop, nor the pump that runs it.
TEST(Flood, TimersAndCancellationGetTheirTurn) {
  testkit::LoopbackServer server([](testkit::Connection& connection, std::size_t) {
    while (connection.Send(std::string(65'536, 'f'))) continue;
  });
  SlowReader deaf;
  SocketCls flooded;
  Recorder recorder(flooded);
  ASSERT_TRUE(ConnectAndWait(flooded, server.Port()));
  SocketCls blocked;
  ASSERT_TRUE(ConnectAndWait(blocked, deaf.Port()));
  auto& loop = MessageLoop::ForThisThread();
  int ticks = 0;
  const auto timer = loop.SetTimer(1, [&] {
    if (++ticks == 20) blocked.StopWaiting();
  });
  EXPECT_EQ(blocked.SendData(kMuch), 9999);
  EXPECT_GE(ticks, 20);
  EXPECT_TRUE(PumpUntil([&] { return recorder.received.size() > 1'000'000; }));
  loop.KillTimer(timer);
}

// One peer that a sink deletes in each of its events.
TEST(Deletion, IsSafeInEveryEvent) {
  for (const std::string event : {"Connect", "SendComplete", "DataArrival", "Closed", "Error"}) {
    BytesServer server({{testkit::Send(std::string(100'000, 'x')), testkit::Close()}});
    const testkit::RefusingPort refusing;
    auto socket = std::make_unique<SocketCls>();
    Recorder recorder(*socket);
    recorder.hook = [&](const std::string& one) {
      if (one == event) socket.reset();
    };
    const int port = event == "Error" ? refusing.Port() : server.Port();
    ASSERT_TRUE(socket->Connect("127.0.0.1", port));
    EXPECT_TRUE(PumpUntil([&] { return socket == nullptr; })) << event;
    EXPECT_EQ(recorder.events.back(), event);
  }
  auto listener = std::make_unique<SocketCls>();
  Recorder recorder(*listener);
  recorder.hook = [&](const std::string&) { listener.reset(); };
  ASSERT_TRUE(listener->Listen("127.0.0.1"));
  SocketCls client;
  ASSERT_TRUE(client.Connect("127.0.0.1", listener->LocalPort()));
  EXPECT_TRUE(PumpUntil([&] { return listener == nullptr; }));
}

TEST(Threads, EightWorkSideBySide) {
  BytesServer server({{testkit::AwaitText("ping"), testkit::Send("pong"), testkit::Stay()}});
  std::vector<std::thread> threads;
  std::atomic<int> answered{0};
  for (int i = 0; i < 8; ++i) {
    threads.emplace_back([&] {
      for (int round = 0; round < 20; ++round) {
        SocketCls socket;
        Recorder recorder(socket);
        if (!ConnectAndWait(socket, server.Port())) return;
        socket.SendData("ping");
        if (PumpUntil([&] { return recorder.received == "pong"; })) ++answered;
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(answered, 160);
}

}  // namespace
}  // namespace netro
