// What the tests of exceptions share: a sink for the trap, and pumping in spite of it.
#pragma once

#include <netro/WatchpostCls.h>

#include "SocketTestKit.h"
#include "tests/torture/AllEvents.h"
#include "tests/torture/Trap.h"

namespace netro {

/// Pumps until `done()`; returns how many exceptions came out.
inline int PumpThrough(const std::function<bool()>& done) {
  int thrown = 0;
  while (Throws([&] { EXPECT_TRUE(PumpUntil(done)); })) ++thrown;
  return thrown;
}

/// Every sink there is.
class Sink : public torture::AllEvents, public WatchpostClsEvents {
 public:
  explicit Sink(Trap& trap) : trap_(trap) {}

  std::function<void(const std::string& line)> onLine = [](const std::string&) {};
  int rounds = 0;

  void DisplayProtocol(const std::string& line) override {
    onLine(line);
    Event();
  }
  void Alert(const std::string&, std::int32_t, bool, const std::string&, const std::string&,
             const std::string&) override {
    Event();
  }
  void OnTheHunt(bool) override { Event(); }
  void Probed(std::int32_t) override { Event(); }
  void RoundEnded() override {
    ++rounds;
    Event();
  }

 private:
  void Event() override { trap_.Event(); }

  Trap& trap_;
};

}  // namespace netro
