// How the caller ends a session in its events, and at any moment. The waits are in ServerCallsTest.
#include "SmtpTestKit.h"

namespace netro {
namespace {

struct EndOfSmtp : SmtpTest {};

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
