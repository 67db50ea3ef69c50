// A watcher that finds a host down, logs it and posts it to a webhook, whatever is short meanwhile.
// When the shortage is over it has done both, and told the event once.
#include <netro/MessageLoop.h>
#include <netro/WatchpostCls.h>
#include <netro/testkit/HttpServer.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <filesystem>

#include "Scenario.h"
#include "platform/Clock.h"
#include "tests/TemporaryFolder.h"

namespace netro::torture {
namespace {

using namespace std::chrono_literals;

class Watched final : public WatchpostClsEvents {
 public:
  explicit Watched(AllEvents& events) : events_(events) {
    hooks_.On("/", [this](const testkit::HttpRequest&) {
      ++posts_;
      return testkit::HttpServer::Answer("200 OK", "");
    });
    WriteFile(settings_,
              "[Settings]\nDownCycle=1\nStateFile=state\n[DownActions]\n1=log\n2=webhook|" +
                  hooks_.Url("/") +
                  "\n[HostNames]\ngone=127.0.0.1|tcp:" + std::to_string(refusing_.Port()) + "\n");
    Renew();
  }

  std::int32_t Run() {
    const bool observed = Hurt([this] { return Observe(); });
    return post_ == nullptr ? kGone : Judge(observed);
  }
  void Destroy() { post_.reset(); }

 private:
  // A library's event for each of the watcher's.
  void Changed(std::int32_t, WatchedChangeEnum change) override {
    changes_ += change == WatchedWentDown ? 1 : 0;
    events_.LoggingStarted();
  }
  void Alert(const std::string&, std::int32_t, bool, const std::string&, const std::string&,
             const std::string&) override {
    events_.LoggingStarted();
  }
  void OnTheHunt(bool) override { events_.LoggingStarted(); }
  void Probed(std::int32_t) override { events_.LoggingStarted(); }
  void RoundEnded() override { events_.LoggingStarted(); }

  void Renew() {
    post_ = std::make_unique<WatchpostCls>();
    post_->Events(this);
    post_->SettingsName(settings_);
  }

  bool Observe() {
    if (!post_->StartObservation()) return false;
    if (post_) post_->ObserveNow();
    for (int turn = 0; post_ && turn < 20 && !IsDone(); ++turn) Turn();
    return true;
  }

  std::int32_t Judge(bool observed) {
    const std::int32_t error = post_->LastErr();
    for (int turn = 0; observed && turn < 200 && !IsDone(); ++turn) {
      AdvanceClockForTests(1s);
      Turn();
    }
    const int posts = posts_.exchange(0), changes = std::exchange(changes_, 0);
    post_->Events(nullptr);
    post_->Kill();
    const std::string log = ReadFile(folder_ / "settings.csv");
    std::filesystem::remove(folder_ / "settings.csv");
    std::filesystem::remove(folder_ / "state");
    post_->Events(this);
    if (!observed) return Told(false, false, error);
    return posts > 0 && changes == 1 && Lines(log) == 1 ? kDone : kWrongResult;
  }

  bool IsDone() const { return posts_ > 0 && changes_ > 0; }
  static void Turn() { MessageLoop::ForThisThread().Sleep(1ms); }
  static std::ptrdiff_t Lines(const std::string& log) {
    constexpr std::string_view kDown = "\"down\"";
    std::ptrdiff_t lines = 0;
    for (std::size_t at = log.find(kDown); at != log.npos; at = log.find(kDown, at + 1)) ++lines;
    return lines;
  }

  AllEvents& events_;
  TemporaryFolder folder_;
  const std::string settings_ = folder_ / "settings.ini";
  testkit::RefusingPort refusing_;
  std::atomic<int> posts_ = 0;
  int changes_ = 0;
  testkit::HttpServer hooks_;
  std::unique_ptr<WatchpostCls> post_;
};

}  // namespace

std::vector<Scenario> WatchScenarios() {
  const auto make = [](World& world) {
    const auto watched = std::make_shared<Watched>(world.events);
    return Subject{[=] { return watched->Run(); }, nullptr, [=] { watched->Destroy(); }};
  };
  return {Alone({"Watchpost", make})};
}

}  // namespace netro::torture
