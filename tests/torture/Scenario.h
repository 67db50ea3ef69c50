// What is tortured: one call of each class, by each way to its server, against peers of this
// machine that answer at once.
#pragma once

#include <netro/MessageLoop.h>

#include <chrono>
#include <concepts>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "AllEvents.h"
#include "CutRelay.h"
#include "Faults.h"

namespace netro::torture {

/// What run() returns besides the library's numbers.
constexpr std::int32_t kDone = 0;
constexpr std::int32_t kGone = 1;          // deleted in an event
constexpr std::int32_t kWrongResult = -1;  // success was told, and it was none
constexpr std::int32_t kNoNumber = -2;     // failure was told, without a reason

/// An object of the library and its call.
struct Subject {
  std::function<std::int32_t()> run;
  std::function<void()> cancel;  // from any thread; null: the call cannot be cancelled
  std::function<void()> destroy;
};

/// What scenarios share: the sink of all events, and the relay in front of each server.
class World {
 public:
  AllEvents events;
  Cut cut;

  /// The port to connect to instead of a server's.
  int Via(int port);

 private:
  std::map<int, std::unique_ptr<CutRelay>> relays_;
};

struct Scenario {
  std::string name;
  std::function<Subject(World&)> make;
  bool alone =
      false;  // it turns the clock, or ends all waits of the thread: nothing runs beside it
};

/// The servers live as long as the program.
std::vector<Scenario> WebScenarios();
std::vector<Scenario> MailScenarios();
std::vector<Scenario> NameScenarios();
std::vector<Scenario> SocketScenarios();
std::vector<Scenario> EchoScenarios();
std::vector<Scenario> FileScenarios();
std::vector<Scenario> WatchScenarios();
std::vector<Scenario> TlsScenarios();

template <class Object>
concept Cancellable = requires(Object& object) {
  object.StopWaiting();
};

/// `call` is what may be hurt: of the object, or of what holds it if it asks for that, to see
/// whether it is gone. `judge` tells what came of it, unless it is.
template <class Object, class Call, class Judge>
Scenario Make(std::string name, std::function<void(World&, Object&)> prepare, Call call,
              Judge judge) {
  const auto make = [=](World& world) {
    const auto object = std::make_shared<std::unique_ptr<Object>>(std::make_unique<Object>());
    prepare(world, **object);
    const auto run = [=] {
      const auto result = Hurt([&] {
        if constexpr (std::invocable<Call, std::unique_ptr<Object>&>)
          return call(*object);
        else
          return call(**object);
      });
      return *object == nullptr ? kGone : judge(**object, result);
    };
    Subject subject{run, nullptr, [=] { object->reset(); }};
    if constexpr (Cancellable<Object>) subject.cancel = [=] { (*object)->StopWaiting(); };
    return subject;
  };
  return {std::move(name), make};
}

/// Waits as the library's calls do, in tasks too: false after a minute, or without memory
/// to wait for good.
inline bool TurnUntil(const std::function<bool()>& done) {
  const auto limit = std::chrono::steady_clock::now() + std::chrono::minutes(1);
  while (!done()) {
    if (std::chrono::steady_clock::now() > limit) return false;
    const std::int32_t error = MessageLoop::ForThisThread().Sleep(std::chrono::milliseconds(1));
    if (error != 0 && IsLasting()) return false;
  }
  return true;
}

inline Scenario Alone(Scenario scenario) {
  scenario.alone = true;
  return scenario;
}

/// kDone when `good`; else the number, or that there is none.
inline std::int32_t Told(bool success, bool good, std::int32_t number) {
  if (success) return good ? kDone : kWrongResult;
  return number != 0 ? number : kNoNumber;
}

}  // namespace netro::torture
