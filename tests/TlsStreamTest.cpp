// A protected connection as a stream: its handshake, its data, its end, and events meanwhile.
#include <netro/Task.h>
#include <poll.h>
#include <sys/socket.h>

#include "ExceptionKit.h"
#include "TlsTestKit.h"
#include "socket/OpenConnection.h"

namespace netro {
namespace {

const std::string kMuch = [] {
  std::string text(10'000'000, ' ');
  for (std::size_t i = 0; i < text.size(); ++i) text[i] = static_cast<char>(i * 7 + i / 251);
  return text;
}();

// A server whose deeds after the handshake are given.
TlsRules Serving(std::function<void(TlsPeer&)> serve, int version = 0) {
  TlsRules rules = GoodRules(version);
  rules.serve = std::move(serve);
  return rules;
}

TEST(TlsHandshake, WithoutAProviderOrConnectionThereIsNone) {
  TlsServer server(GoodRules());
  SocketCls socket;
  EXPECT_FALSE(socket.StartTls("localhost", Trusting()));
  EXPECT_EQ(socket.LastSocketErr(), 10057);
  EXPECT_EQ(Protect(socket, server.Port(), nullptr), 10043);
  EXPECT_EQ(socket.SocketHandle(), 0) << "nothing may go on in clear";
  ASSERT_EQ(Protect(socket, server.Port(), Trusting()), 0);
  EXPECT_FALSE(socket.StartTls("localhost", Trusting()));
  EXPECT_EQ(socket.LastSocketErr(), 10045);
}

TEST(TlsHandshake, CutAnywhereItFails) {
  const auto provider = Trusting();
  for (const int version : {TLS1_2_VERSION, TLS1_3_VERSION}) {
    TlsRules rules = GoodRules(version);
    std::size_t whole = 0;
    {  // byte by byte it succeeds
      rules.byBytes = true;
      TlsServer server(rules);
      SocketCls socket;
      Recorder recorder(socket);
      ASSERT_EQ(Protect(socket, server.Port(), provider), 0);
      ASSERT_EQ(socket.SendData("ping"), 0);
      for (int i = 0; i < 6 && recorder.received.empty(); ++i)  // each byte waits for its reader
        PumpUntil([&] { return recorder.received == "ping"; });
      ASSERT_EQ(recorder.received, "ping");
      whole = server.HandshakeBytes();
      rules.byBytes = false;
    }
    // Each byte of the first messages, then of some: a handshake costs a millisecond.
    for (rules.cutAfter = 0; rules.cutAfter < whole;
         rules.cutAfter += rules.cutAfter < 150 ? 1 : 17) {
      TlsServer server(rules);
      SocketCls socket;
      Recorder recorder(socket);
      const std::int32_t error = Protect(socket, server.Port(), Trusting());
      if (error == 0) {  // the tickets of TLS 1.3 come behind
        EXPECT_EQ(version, TLS1_3_VERSION);
        EXPECT_TRUE(PumpUntil([&] { return recorder.Saw("Closed"); }));
        EXPECT_EQ(socket.LastSocketErr(), 10054);
      } else {
        EXPECT_EQ(error, 10175) << rules.cutAfter << " of " << whole;
        EXPECT_EQ(socket.SocketHandle(), 0);
      }
    }
  }
}

TEST(TlsHandshake, WhatIsNotTlsIsRefused) {
  const std::string flood(2'000'000, '\x16');
  for (const std::string& bytes :
       {std::string("HTTP/1.1 400 Bad Request\r\n\r\n"), std::string(5, '\0'), flood}) {
    testkit::BytesServer server({{testkit::AwaitBytes(100), testkit::Send(bytes), testkit::Stay()}});
    SocketCls socket;
    EXPECT_EQ(Protect(socket, server.Port(), Trusting()), 10172);
    EXPECT_EQ(socket.SocketHandle(), 0);
  }
}

TEST(TlsHandshake, HandshakeWithoutEndHasALimit) {
  // Certificate messages of the largest size that announce more than they bring.
  std::string hello = "\x16\x03\x03";
  const auto endless = [](testkit::Connection& connection, std::size_t) {
    std::string got;
    connection.Read(got);
    std::string record("\x16\x03\x03\x40\x00", 5);
    record += std::string("\x02\xFF\xFF\xFF", 4) + std::string(0x4000 - 4, 'x');
    while (connection.Send(record)) continue;
  };
  testkit::LoopbackServer server(endless);
  SocketCls socket;
  const std::int32_t error = Protect(socket, server.Port(), Trusting());
  EXPECT_TRUE(error == 10172 || error == 10176) << error;
}

TEST(TlsHandshake, UnprotectedBytesBeforeItAreNeverTakenIn) {
  TlsRules rules = GoodRules();
  rules.unprotected = "250 injected\r\n";
  TlsServer server(rules);
  SocketCls socket;  // without a sink that would see them
  socket.SocketIsBusy(true);
  ASSERT_TRUE(ConnectAndWait(socket, server.Port()));
  std::int32_t error = 0;
  char byte = 0;
  ASSERT_TRUE(PumpUntil(
      [&] { return recv(socket.SocketHandle(), &byte, 1, MSG_PEEK | MSG_DONTWAIT) == 1; }));
  socket.SocketIsBusy(false);
  EXPECT_FALSE(socket.StartTls("localhost", Trusting()));
  EXPECT_EQ(socket.LastSocketErr(), 10173);

  testkit::SocksRules socks;
  socks.early = "220 injected\r\n";  // in one block with the reply that opens the tunnel
  testkit::SocksServer proxy(socks);
  ASSERT_TRUE(ConnectAndWait(socket, proxy.Port()));
  ASSERT_TRUE(socket.Socks5Prolog(true, false, "localhost", server.Port(), "", "", error));
  EXPECT_FALSE(socket.StartTls("localhost", Trusting()));
  EXPECT_EQ(socket.LastSocketErr(), 10173);
}

TEST(TlsHandshake, RunsThroughASocksTunnel) {
  TlsServer server(GoodRules());
  testkit::SocksServer proxy;
  SocketCls socket;
  Recorder recorder(socket);
  std::int32_t error = 0;
  ASSERT_TRUE(ConnectAndWait(socket, proxy.Port()));
  ASSERT_TRUE(socket.Socks5Prolog(true, false, "localhost", server.Port(), "", "", error));
  ASSERT_TRUE(socket.StartTls("localhost", Trusting())) << socket.LastSocketErrMsg();
  EXPECT_TRUE(Echoes(socket, recorder));
}

// A host that takes the first flight and never answers.
struct Silent : testing::Test {
  void SetUp() override { ASSERT_TRUE(ConnectAndWait(*socket_, server_.Port())); }
  void After(std::function<void()> act) {
    MessageLoop& loop = MessageLoop::ForThisThread();
    timer_ = loop.SetTimer(1, [this, &loop, act = std::move(act)] {
      loop.KillTimer(timer_);
      act();
    });
  }

  testkit::BytesServer server_{{{testkit::Stay()}}};
  std::shared_ptr<TlsProvider> provider_ = Trusting();
  std::unique_ptr<SocketCls> socket_ = std::make_unique<SocketCls>();
  std::int32_t timer_ = 0;
};

TEST_F(Silent, EndsByTimeOutAndByTheCaller) {
  socket_->SocksTimeout(40);
  const std::pair<std::function<void()>, std::int32_t> kActs[] = {
      {[] { AdvanceClockForTests(std::chrono::seconds(41)); }, 10002},
      {[&] { socket_->Kill(); }, 9999},
      {[&] { socket_->StopWaiting(); }, 9999},
      {[&] { socket_->Disconnect(); }, 10057}};
  for (const auto& [act, error] : kActs) {
    ASSERT_TRUE(ConnectAndWait(*socket_, server_.Port()));
    After(act);
    EXPECT_FALSE(socket_->StartTls("localhost", provider_));
    EXPECT_EQ(socket_->LastSocketErr(), error);
    EXPECT_EQ(socket_->SocketHandle(), 0);
  }
}

TEST_F(Silent, MayBeDeletedMeanwhile) {
  After([&] { socket_.reset(); });
  EXPECT_FALSE(socket_->StartTls("localhost", provider_));
  EXPECT_EQ(socket_, nullptr);
}

using SilentExceptions = Silent;
TEST_F(SilentExceptions, CloseTheSocket) {
  After([] { throw Thrown(); });
  EXPECT_TRUE(Throws([&] { socket_->StartTls("localhost", provider_); }));
  EXPECT_EQ(socket_->SocketHandle(), 0);
  EXPECT_EQ(Protect(*socket_, server_.Port(), nullptr), 10043) << "it can be used again";
}

TEST_F(Silent, EndsWithItsTask) {
  std::int32_t error = 0;
  MessageLoop& loop = MessageLoop::ForThisThread();
  Task task = loop.StartTask([&] {
    socket_->StartTls("localhost", provider_);
    error = socket_->LastSocketErr();
  });
  After([&] { task.Cancel(); });
  EXPECT_TRUE(PumpUntil([&] { return task.Done(); }));
  EXPECT_EQ(error, 9999);
}

using TlsData = SocketTest;

TEST_F(TlsData, TenMillionBytesBothWaysAtOnce) {
  for (const int version : {TLS1_2_VERSION, TLS1_3_VERSION}) {
    TlsServer server(GoodRules(version));
    SocketCls client;
    Recorder seen(client);
    ASSERT_EQ(Protect(client, server.Port(), Trusting()), 0);
    EXPECT_EQ(client.SendData(kMuch), 0);
    EXPECT_TRUE(PumpUntil([&] { return seen.received.size() == kMuch.size(); }));
    EXPECT_TRUE(seen.received == kMuch);
    EXPECT_LE(*std::ranges::max_element(seen.sizes), 16'000u);
    client.Disconnect();
    EXPECT_TRUE(PumpUntil([&] { return server.Goodbyes() == 1; }));
  }
}

TEST_F(TlsData, QueuedDataGoesOutInOrderAndTheAlertBehindIt) {
  TlsServer server(GoodRules());
  ASSERT_TRUE(ConnectAndWait(socket, server.Port()));
  recorder.events.clear();
  ASSERT_TRUE(socket.StartTls("localhost", Trusting()));
  socket.SendBufferLimit(kMuch.size());
  EXPECT_EQ(socket.QueueData(kMuch), 0);
  EXPECT_GT(socket.QueuedBytes(), 0u);
  recorder.hook = [&](const std::string& event) {
    if (event == "SendComplete") {
      EXPECT_EQ(socket.QueuedBytes(), 0u);
    }
  };
  EXPECT_EQ(socket.SendData("end"), 0);
  EXPECT_TRUE(PumpUntil([&] { return recorder.received.size() == kMuch.size() + 3; }));
  EXPECT_TRUE(recorder.received == kMuch + "end");

  std::size_t got = 0;
  TlsServer sink(Serving([&](TlsPeer& peer) {
    for (std::string text; peer.Read(text); text.clear()) got += text.size();
  }));
  ASSERT_EQ(Protect(socket, sink.Port(), Trusting()), 0);
  EXPECT_EQ(socket.QueueData(kMuch), 0);
  socket.DisconnectWhenSent();
  EXPECT_TRUE(PumpUntil([&] { return socket.SocketHandle() == 0; }));
  EXPECT_TRUE(PumpUntil([&] { return sink.Goodbyes() == 1; }));
  EXPECT_EQ(got, kMuch.size());
}

TEST_F(TlsData, ACancelledSendLeavesTheStreamWhole) {
  std::atomic<bool> read{false};
  std::string got;
  TlsServer server(Serving([&](TlsPeer& peer) {
    pollfd stop{peer.Raw().StopFd(), POLLIN, 0};
    while (!read && poll(&stop, 1, 1) == 0) continue;
    while (peer.Read(got)) continue;
    peer.CloseNotify();
  }));
  ASSERT_EQ(Protect(socket, server.Port(), Trusting()), 0);
  MessageLoop& loop = MessageLoop::ForThisThread();
  const std::int32_t timer = loop.SetTimer(20, [&] { socket.StopWaiting(); });
  const std::string more(64'000'000, 'm');
  EXPECT_EQ(socket.SendData(more), 9999);
  loop.KillTimer(timer);
  read = true;
  EXPECT_EQ(socket.SendData("end"), 0);
  socket.DisconnectWhenSent();
  EXPECT_TRUE(PumpUntil([&] { return server.Goodbyes() == 1; }));
  EXPECT_EQ(got.substr(got.size() - 4), "mend");
}

TEST_F(TlsData, KeyUpdatesAndNewTicketsAreNoData) {
  TlsServer server(Serving([](TlsPeer& peer) {
    std::string text;
    for (int i = 0; i < 50; ++i) {
      if (!peer.UpdateKeys() || !peer.Send("a")) return;
      if (SSL_new_session_ticket(peer.Handle()) != 1 || SSL_do_handshake(peer.Handle()) != 1)
        return;
    }
    while (text.size() < 4 && peer.Read(text)) continue;
    peer.Send(text);
    peer.Read(text);
  }));
  ASSERT_EQ(Protect(socket, server.Port(), Trusting()), 0);
  EXPECT_TRUE(PumpUntil([&] { return recorder.received == std::string(50, 'a'); }));
  EXPECT_TRUE(Echoes(socket, recorder));
}

TEST_F(TlsData, RecordsWithoutDataHaveALimit) {
  TlsServer server(Serving([](TlsPeer& peer) {
    while (SSL_new_session_ticket(peer.Handle()) == 1 && peer.Send("")) {
      if (SSL_do_handshake(peer.Handle()) != 1 || !peer.Flush()) return;
    }
  }));
  ASSERT_EQ(Protect(socket, server.Port(), Trusting()), 0);
  EXPECT_TRUE(PumpUntil([&] { return recorder.Saw("Closed"); }));
  EXPECT_EQ(socket.LastSocketErr(), 10176);
}

TEST(TlsEnd, IsOrderlyOnlyWithTheClosingAlert) {
  const std::tuple<const char*, std::function<void(TlsPeer&)>, std::int32_t> cases[] = {
      {"alert", [](TlsPeer& peer) { peer.CloseNotify(); }, 0},
      {"cut", [](TlsPeer&) {}, 10054},
      {"reset", [](TlsPeer& peer) { peer.Raw().Reset(); }, 10054},
      {"part of a record", [](TlsPeer& peer) { peer.Raw().Send("\x17\x03\x03\x40"); }, 10054},
      {"damage",
       [](TlsPeer& peer) { peer.Raw().Send("\x17\x03\x03\x00\x14" + std::string(20, 'x')); }, 0},
  };
  for (const auto& [what, end, error] : cases)
    for (const int version : {TLS1_2_VERSION, TLS1_3_VERSION}) {
      SCOPED_TRACE(what);
      TlsServer server(Serving(
          [&](TlsPeer& peer) {
            std::string text;
            peer.Read(text);
            peer.Send("all of it");
            if (std::string(what) == "reset") peer.Read(text);
            end(peer);
          },
          version));
      SocketCls socket;
      Recorder recorder(socket);
      ASSERT_EQ(Protect(socket, server.Port(), Trusting()), 0);
      recorder.events.clear();
      recorder.hook = [&](const std::string& event) {
        if (event == "DataArrival" && std::string(what) == "reset") socket.QueueData("more");
      };
      ASSERT_EQ(socket.SendData("ask"), 0);
      EXPECT_TRUE(PumpUntil([&] { return recorder.Saw("Closed"); }));
      EXPECT_EQ(recorder.received, "all of it");
      const bool damage = std::string(what) == "damage";
      EXPECT_EQ(SocketOwner::CloseError(socket), damage ? 10172 : error);
      EXPECT_EQ(socket.LastSocketErr(), damage ? 10172 : error);
      for (int i = 0; i < 5; ++i) MessageLoop::ForThisThread().PumpMessages();
      EXPECT_EQ(std::ranges::count(recorder.events, "Closed"), 1);
    }
}

TEST(TlsEnd, OfThePeersWordsLeavesOursGoOn) {
  std::string got;
  TlsServer server(Serving([&](TlsPeer& peer) {
    peer.CloseNotify();
    while (peer.Read(got)) continue;
  }));
  SocketCls socket;
  Recorder recorder(socket);
  ASSERT_EQ(Protect(socket, server.Port(), Trusting()), 0);
  EXPECT_TRUE(PumpUntil([&] { return recorder.Saw("Closed"); }));
  EXPECT_EQ(socket.SendData("the rest"), 0);
  socket.DisconnectWhenSent();
  EXPECT_TRUE(PumpUntil([&] { return server.Goodbyes() == 1; }));
  EXPECT_EQ(got, "the rest");
}

TEST(TlsEnd, OfAConnectionThatLosesDataHasNoAlert) {
  std::atomic<bool> read{false}, over{false};
  std::string got;
  TlsServer server(Serving([&](TlsPeer& peer) {
    pollfd stop{peer.Raw().StopFd(), POLLIN, 0};
    while (!read && poll(&stop, 1, 1) == 0) continue;
    while (peer.Read(got)) continue;
    over = true;
  }));
  SocketCls socket;
  ASSERT_EQ(Protect(socket, server.Port(), Trusting()), 0);
  socket.SendBufferLimit(kMuch.size());
  EXPECT_EQ(socket.QueueData(kMuch), 0);
  socket.Disconnect();
  read = true;
  EXPECT_TRUE(PumpUntil([&] { return over.load(); }));
  EXPECT_LT(got.size(), kMuch.size());
  EXPECT_EQ(server.Goodbyes(), 0);
}

TEST(TlsEnd, ComesBehindAllDataAlsoToWhoIsBusy) {
  TlsServer server(Serving([](TlsPeer& peer) {
    peer.Send(std::string_view(kMuch).substr(0, 100'000));
    peer.CloseNotify();
  }));
  SocketCls socket;
  Recorder recorder(socket);
  ASSERT_TRUE(ConnectAndWait(socket, server.Port()));
  recorder.hook = [&](const std::string& event) {
    if (event == "DataArrival") socket.SocketIsBusy(true);
  };
  ASSERT_TRUE(socket.StartTls("localhost", Trusting()));
  for (std::size_t blocks = 1; blocks <= 7; ++blocks) {
    EXPECT_TRUE(PumpUntil([&] { return recorder.sizes.size() == blocks; }));
    for (int i = 0; i < 5; ++i) MessageLoop::ForThisThread().PumpMessages();
    EXPECT_EQ(recorder.sizes.size(), blocks) << "it is busy";
    EXPECT_FALSE(recorder.Saw("Closed"));
    socket.SocketIsBusy(false);
  }
  EXPECT_TRUE(PumpUntil([&] { return recorder.Saw("Closed"); }));
  EXPECT_TRUE(recorder.received == kMuch.substr(0, 100'000));
  socket.SocketIsBusy(false);
}

enum Deed { kDelete, kDisconnect, kReconnect, kWait, kThrow };

// Does it in the block of a number of data that comes behind the handshake.
void DoInEvent(Deed deed, std::size_t block) {
  TlsServer server(Serving([](TlsPeer& peer) {
    std::string text;
    peer.Send(std::string_view(kMuch).substr(0, 200'000));
    peer.Read(text);
    peer.CloseNotify();
  }));
  const auto provider = Trusting();
  auto socket = std::make_unique<SocketCls>();
  Recorder recorder(*socket);
  ASSERT_TRUE(ConnectAndWait(*socket, server.Port()));
  bool done = false;
  recorder.hook = [&](const std::string& event) {
    if (event != "DataArrival" || recorder.sizes.size() != block || done) return;
    done = true;
    if (deed == kDelete) socket.reset();
    if (deed == kDisconnect) socket->Disconnect();
    if (deed == kReconnect) {
      recorder.received.clear();
      EXPECT_EQ(Protect(*socket, server.Port(), provider), 0);
    }
    if (deed == kWait) {
      EXPECT_TRUE(PumpUntil([&] { return recorder.received.size() == 200'000; }));
    }
    if (deed == kThrow) throw Thrown();
  };
  ASSERT_TRUE(socket->StartTls("localhost", provider));
  const bool ends = deed == kDelete || deed == kDisconnect;
  const int thrown =
      PumpThrough([&] { return done && (ends || recorder.received.size() >= 200'000); });
  EXPECT_EQ(thrown, deed == kThrow ? 1 : 0);
  EXPECT_TRUE(ends || recorder.received == kMuch.substr(0, 200'000)) << deed << " " << block;
}

TEST(TlsEvents, MayDoAnythingToTheSocket) {
  for (const Deed deed : {kDelete, kDisconnect, kReconnect}) {
    for (std::size_t block = 1; block <= 13; block += 4) DoInEvent(deed, block);
  }
}

TEST(TlsNested, AWaitInsideAnEventGetsTheRest) {
  for (std::size_t block = 1; block <= 13; block += 4) DoInEvent(kWait, block);
}

TEST(TlsEventExceptions, LoseNoData) {
  for (std::size_t block = 1; block <= 13; block += 4) DoInEvent(kThrow, block);
}

TEST(TlsTasks, ManyConnectionsSideBySide) {
  TlsServer server(GoodRules());
  const auto provider = Trusting();
  MessageLoop& loop = MessageLoop::ForThisThread();
  std::list<Task> tasks;
  int good = 0;
  for (int i = 0; i < 60; ++i) {
    tasks.push_back(loop.StartTask([&, i] {
      SocketCls socket;
      Recorder recorder(socket);
      const std::string text(static_cast<std::size_t>(i) * 3000 + 1,
                             static_cast<char>('a' + i % 26));
      if (Protect(socket, server.Port(), provider) != 0 || socket.SendData(text) != 0) return;
      while (recorder.received.size() < text.size())
        MessageLoop::ForThisThread().Sleep(std::chrono::milliseconds(1));
      good += recorder.received == text ? 1 : 0;
    }));
  }
  EXPECT_TRUE(PumpUntil(
      [&] { return std::ranges::all_of(tasks, [](const Task& task) { return task.Done(); }); }));
  EXPECT_EQ(good, 60);
}

}  // namespace
}  // namespace netro
