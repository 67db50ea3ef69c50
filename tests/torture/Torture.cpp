// Tries every fault at every position of every scenario: allocations and calls of the system that
// fail, dialogues cut at each byte, a cancel at each wait, deletion in each event, what the host's
// functions throw. After each, the same object does the same call once more, which must succeed;
// nothing may leak, hang or throw.
//
//   netro_torture [GROUP...] [--fifth N] [--only TEXT] [--in-task] [--trace] [--list]
//   netro_torture [GROUP...] --soak SECONDS  (Soak.h)
//
// Groups: web, mail, names, sockets, echo, files, watch, tls; all of them when none is named.
// --fifth N tries each fifth position, chosen by N, a number or "commit". --only: the scenarios, or
// positions
// ("allocation 17"), whose name has the text. The last line counts positions and violations.
#include <netro/MessageLoop.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <filesystem>
#include <iterator>
#include <optional>
#include <thread>

#include "Faults.h"
#include "Scenario.h"
#include "Soak.h"
#include "Trap.h"

namespace netro::torture {
namespace {

constexpr unsigned kLimit = 30;        // seconds, of one position
constexpr int kWarmUp = 3;             // until caches hold what they will
constexpr std::ptrdiff_t kSlack = 24;  // blocks: caches that grow by turns

char underWay[256];

struct Choice {
  std::vector<std::string> groups;
  std::optional<std::size_t> fifth;
  std::string only;
  bool inTask = false;
  bool list = false;
  std::chrono::seconds soak{0};
};

std::ptrdiff_t OpenDescriptors() {
  return std::distance(std::filesystem::directory_iterator("/proc/self/fd"), {});
}

class Torture {
 public:
  explicit Torture(Choice choice) : choice_(std::move(choice)) {}

  void Run(const Scenario& scenario);
  int Report() const {
    std::printf("%zu positions, %zu violations\n", positions_, violations_);
    return violations_ == 0 ? 0 : 1;
  }

 private:
  void Allocations();
  void SystemCalls();
  void Cuts();
  void Cancels();
  void Deletions();
  void Exceptions();

  void TryThrown(const std::string& what, const std::function<bool()>& isSprung,
                 bool deletes = false);
  void Recover(const std::string& what, bool failed, bool deletes);
  void Try(const std::string& what, const Fault& fault, bool deletes = false);
  std::int32_t Call(const std::string& what);
  void Violation(const std::string& what, const std::string& text);
  void Settle();
  bool Chosen(const std::string& what);

  const Choice choice_;
  std::size_t positions_ = 0;
  std::size_t violations_ = 0;

  const Scenario* scenario_ = nullptr;
  World world_;
  Subject subject_;
  Trap trap_;
  Counts clean_;
  std::size_t events_ = 0;
  long bytes_[2] = {0, 0};
  std::ptrdiff_t descriptors_ = 0;
  std::ptrdiff_t blocks_ = 0;
  bool struck_ = false;
};

bool Torture::Chosen(const std::string& what) {
  const std::string whole = scenario_->name + ": " + what;
  if (whole.find(choice_.only) == std::string::npos) return false;
  ++positions_;
  if (choice_.fifth && positions_ % 5 != *choice_.fifth) return false;
  return true;
}

void Torture::Violation(const std::string& what, const std::string& text) {
  ++violations_;
  std::printf("VIOLATION %s: %s: %s\n", scenario_->name.c_str(), what.c_str(), text.c_str());
  std::fflush(stdout);
}

std::int32_t Torture::Call(const std::string& what) {
  try {
    return subject_.run();
  } catch (const std::exception& thrown) {
    Disarm();
    Violation(what, std::string("throws ") + thrown.what());
  }
  return kNoNumber;
}

// The peers close their ends as soon as the library has.
void Torture::Settle() {
  for (int i = 0; i < 2'000 && OpenDescriptors() > descriptors_; ++i) {
    MessageLoop::ForThisThread().PumpMessages();
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
}

void Torture::Try(const std::string& what, const Fault& fault, bool deletes) {
  std::snprintf(underWay, sizeof underWay, "%s: %s", scenario_->name.c_str(), what.c_str());
  alarm(kLimit);
  Arm(fault);
  const std::size_t before = violations_;
  const std::int32_t first = Call(what);
  struck_ = Disarm().struck;
  OnWait(nullptr);
  if (first == kWrongResult) Violation(what, "success that is none");
  if (first == kNoNumber && violations_ == before) Violation(what, "failure without a number");
  Recover(what, first != kDone, deletes);
}

// There is no echo of what went wrong, and the next call succeeds.
void Torture::Recover(const std::string& what, bool failed, bool deletes) {
  const std::size_t seen = world_.events.Seen();
  world_.events.At(0, nullptr);
  world_.cut.Never();
  MessageLoop::ForThisThread().PumpMessages();
  if (!deletes && world_.events.Seen() > 0 && seen > 0 && failed) {
    Violation(what, "an event after the call");
  }
  if (deletes) subject_ = scenario_->make(world_);
  const std::int32_t again = Call(what);
  if (again != kDone) Violation(what, "the next call: " + std::to_string(again));
  Settle();
  const std::ptrdiff_t open = OpenDescriptors();
  if (open > descriptors_) {
    Violation(what, std::to_string(open - descriptors_) + " descriptors leak");
    descriptors_ = open;
  }
  alarm(0);
}

void Torture::Allocations() {
  for (const bool lasting : {false, true}) {
    const std::string name = lasting ? "all allocations from " : "allocation ";
    struck_ = true;
    for (std::size_t i = 0; struck_; ++i) {
      const std::string what = name + std::to_string(i);
      if (i > clean_.allocations + 50) break;
      if (Chosen(what)) Try(what, {Fault::Allocation, 0, 0, i, lasting});
    }
  }
}

void Torture::SystemCalls() {
  for (std::size_t call = 0; call < FaultyCalls().size(); ++call) {
    for (const int error : FaultyCalls()[call].errors) {
      for (std::size_t i = 0; i < clean_.calls[call]; ++i) {
        for (const bool lasting : {false, true}) {
          if (lasting && error == EINTR) continue;  // to try again is right
          const std::string what = std::string(FaultyCalls()[call].name) + " " + std::to_string(i) +
                                   (lasting ? " and on: " : ": ") + strerrorname_np(error);
          if (Chosen(what)) Try(what, {Fault::SystemCall, call, error, i, lasting});
        }
      }
    }
  }
  if (Chosen("single bytes")) Try("single bytes", {Fault::SingleBytes, 0, 0, 0, false});
}

void Torture::Cuts() {
  for (const auto direction : {Cut::FromServer, Cut::FromClient}) {
    for (long i = 1; i <= bytes_[direction]; ++i) {
      for (const bool reset : {false, true}) {
        const std::string what = std::string(reset ? "reset" : "closed") + " behind byte " +
                                 std::to_string(i) +
                                 (direction == Cut::FromServer ? " of the server" : " of ours");
        if (!Chosen(what)) continue;
        world_.cut.At(direction, i, reset ? Cut::Reset : Cut::Closed);
        Try(what, {});
      }
    }
  }
}

void Torture::Cancels() {
  if (!subject_.cancel) return;
  for (std::size_t i = 0; i < clean_.waits; ++i) {
    const std::string what = "cancelled at wait " + std::to_string(i);
    if (!Chosen(what)) continue;
    OnWait([this, i](std::size_t wait) {
      if (wait == i) std::thread(subject_.cancel).join();
    });
    Try(what, {});
  }
}

void Torture::Deletions() {
  for (std::size_t i = 0; i < events_; ++i) {
    const std::string what = "deleted in event " + std::to_string(i);
    if (!Chosen(what)) continue;
    world_.events.At(i, [this] { subject_.destroy(); });
    Try(what, {}, true);
  }
}

void Torture::TryThrown(const std::string& what, const std::function<bool()>& isSprung,
                        bool deletes) {
  std::snprintf(underWay, sizeof underWay, "%s: %s", scenario_->name.c_str(), what.c_str());
  alarm(kLimit);
  bool thrown = false;
  try {
    subject_.run();
  } catch (const Thrown&) {
    thrown = true;
  }
  if (thrown != isSprung()) Violation(what, "what was thrown does not come out of the call");
  trap_.Clear();
  Recover(what, thrown, deletes);
}

// Of a blocking call, whose caller they reach. In a task they would leave through the pump.
void Torture::Exceptions() {
  if (!subject_.cancel || choice_.inTask) return;
  for (std::size_t i = 0; i <= events_; ++i) {
    const bool deletes = i == events_;
    const std::size_t event = deletes ? 0 : i;
    const std::string what =
        deletes ? "deleted and thrown" : "thrown in event " + std::to_string(i);
    if (events_ == 0 || !Chosen(what)) continue;
    world_.events.At(event, [this, deletes] {
      if (deletes) subject_.destroy();
      throw Thrown();
    });
    TryThrown(
        what, [this, event] { return world_.events.Seen() > event; }, deletes);
  }
  for (const auto& [moment, name] :
       {std::pair(Trap::kTask, "task "), std::pair(Trap::kTimer, "timer "),
        std::pair(Trap::kHostPump, "host pump ")}) {
    for (const int passes : {0, 1, 2, 3, 5, 8, 13, 21, 34}) {
      const std::string what = std::string("thrown in ") + name + std::to_string(passes);
      if (!Chosen(what)) continue;
      trap_.Set(moment, passes);
      TryThrown(what, [this] { return trap_.IsSprung(); });
    }
  }
}

void Torture::Run(const Scenario& scenario) {
  scenario_ = &scenario;
  if (choice_.list) return void(std::puts(scenario.name.c_str()));
  std::snprintf(underWay, sizeof underWay, "%s", scenario.name.c_str());
  alarm(kLimit);
  subject_ = scenario.make(world_);
  for (int i = 0; i < kWarmUp; ++i) {
    const std::int32_t result = Call("unhurt");
    if (result != kDone) return Violation("unhurt", std::to_string(result));
  }
  descriptors_ = 0;
  Settle();
  std::this_thread::sleep_for(std::chrono::milliseconds(20));
  descriptors_ = OpenDescriptors();
  world_.cut.Never();
  world_.events.At(0, nullptr);
  Arm({});
  Call("unhurt");
  clean_ = Disarm();
  events_ = world_.events.Seen();
  for (const int direction : {0, 1}) bytes_[direction] = world_.cut.passed[direction];
  blocks_ = LiveBlocks();
  alarm(0);
  const std::size_t positions = positions_, violations = violations_;
  using Step = std::pair<const char*, void (Torture::*)()>;
  for (const auto& [name, step] :
       {Step("allocations", &Torture::Allocations), Step("system calls", &Torture::SystemCalls),
        Step("cuts", &Torture::Cuts), Step("cancels", &Torture::Cancels),
        Step("deletions", &Torture::Deletions), Step("exceptions", &Torture::Exceptions)}) {
    (this->*step)();
    const std::ptrdiff_t blocks = LiveBlocks();
    if (blocks > blocks_ + kSlack) {
      Violation(name, std::to_string(blocks - blocks_) + " blocks leak");
      blocks_ = blocks;
    }
  }
  subject_.destroy();
  subject_ = {};
  std::printf("%-40s %6zu positions, %zu violations\n", scenario.name.c_str(),
              positions_ - positions, violations_ - violations);
  std::fflush(stdout);
}

void Died(int signal) {
  const char* const text = signal == SIGALRM ? "\nHANGS: " : "\nDIES: ";
  (void)!write(1, text, std::strlen(text));
  (void)!write(1, underWay, std::strlen(underWay));
  (void)!write(1, "\n", 1);
  std::signal(signal, SIG_DFL);
  std::raise(signal);
}

// The commit's number: its first digits.
std::size_t Number(const std::string& text) {
  if (text != "commit") return std::strtoul(text.c_str(), nullptr, 10);
  char digits[8] = "0";
  FILE* const git = popen("git rev-parse --short=7 HEAD 2>/dev/null", "r");
  if (git == nullptr) return 0;
  if (std::fgets(digits, sizeof digits, git) == nullptr) digits[0] = '0';
  pclose(git);
  return std::strtoul(digits, nullptr, 16);
}

Choice Read(int count, char** words) {
  Choice choice;
  for (int i = 1; i < count; ++i) {
    const std::string word = words[i];
    const char* const next = i + 1 < count ? words[i + 1] : "";
    if (word == "--trace") {
      TraceStrikes();
    } else if (word == "--in-task") {
      choice.inTask = true;
    } else if (word == "--list") {
      choice.list = true;
    } else if (word == "--fifth") {
      choice.fifth = Number(next) % 5, ++i;
    } else if (word == "--soak") {
      choice.soak = std::chrono::seconds(Number(next)), ++i;
    } else if (word == "--only") {
      choice.only = next, ++i;
    } else {
      choice.groups.push_back(word);
    }
  }
  return choice;
}

std::vector<Scenario> Chosen(const Choice& choice) {
  using Group = std::pair<const char*, std::vector<Scenario> (*)()>;
  std::vector<Scenario> chosen;
  for (const auto& [name, scenarios] : {
           Group("web", WebScenarios),
           Group("mail", MailScenarios),
           Group("names", NameScenarios),
           Group("sockets", SocketScenarios),
           Group("echo", EchoScenarios),
           Group("files", FileScenarios),
           Group("watch", WatchScenarios),
#ifdef NETRO_HAS_TLS
           Group("tls", TlsScenarios),
#endif
       }) {
    const bool named = std::ranges::find(choice.groups, name) != choice.groups.end();
    if (choice.groups.empty() || named) std::ranges::move(scenarios(), std::back_inserter(chosen));
  }
  return chosen;
}

int RunAll(const Choice& choice) {
  Torture torture(choice);
  for (const Scenario& scenario : Chosen(choice)) torture.Run(scenario);
  return choice.list ? 0 : torture.Report();
}

// The same in a task, on a stack of its own, while the thread turns the loop.
int RunInTask(const Choice& choice) {
  constexpr std::size_t kStack = std::size_t{8} << 20;
  MessageLoop& loop = MessageLoop::ForThisThread();
  int result = 1;
  const Task task = loop.StartTask(
      [&] {
        result = RunAll(choice);
        loop.QuitLoop();
      },
      kStack);
  while (!task.Done()) loop.RunLoop();
  return result;
}

}  // namespace

int World::Via(int port) {
  std::unique_ptr<CutRelay>& relay = relays_[port];
  if (relay == nullptr) relay = std::make_unique<CutRelay>(port, cut);
  return relay->Port();
}

}  // namespace netro::torture

int main(int count, char** words) {
  using namespace netro::torture;
  for (const int signal : {SIGSEGV, SIGABRT, SIGBUS, SIGFPE, SIGALRM}) std::signal(signal, Died);
  Watch();
  const Choice choice = Read(count, words);
  if (choice.soak.count() > 0) return Soak(Chosen(choice), choice.soak);
  return choice.inTask ? RunInTask(choice) : RunAll(choice);
}
