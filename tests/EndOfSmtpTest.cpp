// How the caller ends a session, wherever it waits, and what events may do.

#include <poll.h>

#include "DnsTestKit.h"
#include "SmtpTestKit.h"
#include "socket/SocketModule.h"
#include "tests/peers/SocksServer.h"

namespace netro {
namespace {

// Where a session waits for something, until the test ends it.
struct Scene {
  std::shared_ptr<void> peers;
  std::function<bool()> reached;
  std::int32_t step;
};

Scene WaitForDns(SMTPCls& smtp, const std::string& receiver, std::int32_t step) {
  auto dns = std::make_shared<DnsServer>(KeepSilent);
  smtp.ReceiverHostName(receiver);
  smtp.DNSURL(UrlOf(*dns));
  return {dns, [=] { return dns->QueryCount() > 0; }, step};
}

Scene WaitForProxy(SMTPCls& smtp) {
  auto proxy = std::make_shared<SocksServer>(SocksRules{.silentAt = 0});
  smtp.ProxyType(SMTPProxySocks5NoAuth);
  smtp.ProxyURL("127.0.0.1");
  smtp.ProxyPort(proxy->Port());
  return {proxy, [=] { return !proxy->Requests().empty(); }, SMTP_STEP_SOCKS};
}

Scene WaitForReply(SMTPCls& smtp, std::size_t place) {
  auto silent = std::make_shared<std::atomic<bool>>(false);
  auto server = std::make_shared<SmtpServer>([=](const std::string& command) -> Answer {
    if (command != kDialogue[place]) return SmtpServer::Politely(command);
    *silent = true;
    return {"25", After::Stay};
  });
  smtp.Port(server->Port());
  return {server, [=] { return silent->load(); }, kSteps[place]};
}

// A server that does not read the message: it does not fit into the system's buffers.
Scene WaitForSending(SMTPCls& smtp) {
  auto server = std::make_shared<LoopbackServer>([](Connection& connection, std::size_t) {
    AcceptUpToData(connection);
    pollfd stop{connection.StopFd(), POLLIN, 0};
    poll(&stop, 1, -1);
  });
  smtp.Port(server->Port());
  return {server, [] { return SocketModule::ForThread()->SendBlocked(); }, SMTP_STEP_SENDDATA};
}

class EndOfSmtp : public SmtpTest {
 protected:
  EndOfSmtp() {
    scenes_.emplace_back([this] { return WaitForDns(*smtp_, "", SMTP_STEP_AUTODNS); });
    scenes_.emplace_back([this] { return WaitForDns(*smtp_, "mx.test", SMTP_STEP_CONNECT); });
    scenes_.emplace_back([this] {
      auto full = std::make_shared<HangingPort>();
      smtp_->Port(full->Port());
      return Scene{full, [] { return true; }, SMTP_STEP_CONNECT};
    });
    scenes_.emplace_back([this] { return WaitForProxy(*smtp_); });
    for (std::size_t place = 0; place < kDialogue.size(); ++place)
      scenes_.emplace_back([this, place] { return WaitForReply(*smtp_, place); });
    scenes_.emplace_back([this] { return WaitForSending(*smtp_); });
  }

  // Ends a session in each place by `end`; without an object afterwards it has been deleted.
  void EndEverywhere(const std::function<void()>& end) {
    const std::string much(16 << 20, 'x');
    for (std::size_t i = 0; i < scenes_.size(); ++i) {
      SCOPED_TRACE(i);
      Renew();
      const Scene scene = scenes_[i]();
      PostWhen(scene.reached, end);
      const SMTPCls* const object = smtp_.get();
      EXPECT_FALSE(Deliver(i + 1 == scenes_.size() ? much : "text"));
      if (thread_.joinable()) thread_.join();
      if (smtp_.get() != object) continue;
      const std::string name = smtp_->GetSMTPStepName(scene.step);
      ExpectResult(scene.step, 9999, "Canceled while '" + name + "'.");
      EXPECT_EQ(sink_.lines.back(),
                "[" + smtp_->ReceiverHostName() + "] Canceled while '" + name + "'.");
      smtp_->ReceiverHostName("127.0.0.1");
      smtp_->ProxyType(NoSMTPProxy);
      SmtpServer server;
      EXPECT_TRUE(Deliver(server)) << "what ended a session does not end the next one";
    }
  }

  std::vector<std::function<Scene()>> scenes_;
  std::thread thread_;
};

TEST_F(EndOfSmtp, FromTheLoopAndFromAThread) {
  EndEverywhere([this] { smtp_->StopWaiting(); });
  EndEverywhere([this] { smtp_->Kill(); });
  EndEverywhere([this] { thread_ = std::thread([this] { smtp_->StopWaiting(); }); });
}

TEST_F(EndOfSmtp, Deletion) {
  EndEverywhere([this] { smtp_.reset(); });
}

TEST_F(EndOfSmtp, AnotherSessionIsRefusedMeanwhile) {
  EndEverywhere([this] {
    const std::string protocol = smtp_->Protocol();
    EXPECT_FALSE(smtp_->SMTP("a\r\n", "b", "c"));
    EXPECT_EQ(smtp_->Protocol(), protocol);
    EXPECT_EQ(smtp_->StepID(), SMTP_STEP_NOERROR);
    smtp_->StopWaiting();
  });
}

// Inside each line of a session and each progress.
TEST_F(EndOfSmtp, InEachEvent) {
  const std::string data(20'000, 'x');
  for (const bool deletes : {false, true})
    for (std::size_t number = 0;; ++number) {
      SCOPED_TRACE(number);
      Renew();
      SmtpServer server;
      std::size_t events = 0;
      const auto end = [&] {
        if (events++ == number) deletes ? smtp_.reset() : smtp_->StopWaiting();
      };
      sink_.onLine = [&](const std::string&) { end(); };
      sink_.onData = end;
      const bool done = Deliver(server, data);
      if (events <= number) break;
      if (smtp_ == nullptr) {
        EXPECT_EQ(events, number + 1);
      } else if (!done) {
        EXPECT_EQ(smtp_->Result(), 9999);
      }
      // No message by halves: all of it was told to be sent, or its reply has come.
      const bool whole = sink_.progress.size() > 4 || sink_.lines.size() > 10;
      EXPECT_LE(server.Messages().size(), whole ? 1u : 0u);
      // After the server has accepted everything nothing is left to be ended.
      EXPECT_EQ(done, sink_.lines.back() == "[127.0.0.1] 221 bye");
    }
}

// A thread that stops a session between two blocks of a message that flows.
TEST_F(EndOfSmtp, WithinTenMilliseconds) {
  SmtpServer server;
  const std::string much(64 << 20, 'x');
  auto fastest = TimePoint::duration::max();
  for (int i = 0; i < 50 && fastest > milliseconds(10); ++i) {  // others may hold the processor
    std::atomic<bool> flows = false;
    std::atomic<TimePoint::rep> stopped = 0;
    sink_.onData = [&] { flows = true; };
    std::thread stopper([&] {
      while (!flows) std::this_thread::yield();
      stopped = Now().time_since_epoch().count();
      smtp_->StopWaiting();
    });
    EXPECT_FALSE(Deliver(server, much));
    fastest = std::min(fastest, Now().time_since_epoch() - TimePoint::duration(stopped.load()));
    stopper.join();
    ExpectResult(SMTP_STEP_SENDDATA, 9999, "Canceled while 'SendData'.");
  }
  EXPECT_LT(fastest, milliseconds(10));
}

}  // namespace
}  // namespace netro
