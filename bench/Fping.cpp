// fping takes the targets from a file and reports on its standard error, which is another.

#include "bench/Fping.h"

#include <fcntl.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <fstream>
#include <sstream>

#include "bench/Process.h"

namespace netro::bench {
namespace {

constexpr int kStarts = 20;      // enough for one that nothing disturbed
constexpr int kAllAnswered = 0;  // exit status
constexpr int kSomeSilent = 1;

const char* FindFping() {
  for (const char* path : {"/usr/bin/fping", "/usr/sbin/fping", "/usr/local/sbin/fping"}) {
    if (access(path, X_OK) == 0) {
      return path;
    }
  }
  return nullptr;
}

double ChildrenCpuSeconds() {
  rusage usage{};
  getrusage(RUSAGE_CHILDREN, &usage);
  const auto seconds = [](const timeval& time) {
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_usec) / 1e6;
  };
  return seconds(usage.ru_utime) + seconds(usage.ru_stime);
}

struct Call {
  double seconds = 0;
  double cpuSeconds = 0;
  int status = 0;
};

class Fping {
 public:
  explicit Fping(const std::vector<std::string>& options) : options_(options) {}

  Call Ping(const std::vector<std::string>& targets, const std::vector<std::string>& mode) const {
    std::ofstream file(targetsFile_);
    for (const std::string& target : targets) {
      file << target << '\n';
    }
    file.close();
    Stopwatch watch;
    const double cpuBefore = ChildrenCpuSeconds();
    watch.Start();
    ChildProcess fping([&] { Execute(mode); });
    const int status = fping.Wait();
    watch.Stop();
    return {watch.Seconds(), ChildrenCpuSeconds() - cpuBefore,
            WIFEXITED(status) ? WEXITSTATUS(status) : -1};
  }

  std::string Report() const {
    std::ostringstream text;
    text << std::ifstream(reportFile_).rdbuf();
    return text.str();
  }

 private:
  void Execute(const std::vector<std::string>& mode) const {
    std::vector<std::string> words = {"fping", "-q", "-f", targetsFile_};
    words.insert(words.end(), options_.begin(), options_.end());
    words.insert(words.end(), mode.begin(), mode.end());
    std::vector<char*> arguments;
    for (std::string& word : words) {
      arguments.push_back(word.data());
    }
    arguments.push_back(nullptr);
    const int report = open(reportFile_.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
    dup2(report, STDERR_FILENO);
    execv(FindFping(), arguments.data());
    _exit(127);
  }

  const std::vector<std::string> options_;
  const TempFolder folder_;
  const std::string targetsFile_ = folder_.Path() + "/targets";
  const std::string reportFile_ = folder_.Path() + "/report";
};

/// The least of each figure.
Call StartOf(const Fping& fping, const std::vector<std::string>& targets,
             const std::vector<std::string>& mode) {
  Call least = fping.Ping({targets.front()}, mode);
  for (int i = 1; i < kStarts; ++i) {
    const Call call = fping.Ping({targets.front()}, mode);
    least.seconds = std::min(least.seconds, call.seconds);
    least.cpuSeconds = std::min(least.cpuSeconds, call.cpuSeconds);
    least.status = std::max(least.status, call.status);
  }
  return least;
}

/// Lines like "127.0.0.1 : 0.014", in milliseconds, and "10.0.0.1 : -".
std::vector<int> ReadRoundTrips(const std::string& report) {
  std::vector<int> microseconds;
  std::istringstream lines(report);
  std::string target;
  std::string colon;
  std::string time;
  while (lines >> target >> colon >> time) {
    if (time != "-") {
      microseconds.push_back(static_cast<int>(std::lround(std::stod(time) * 1000)));
    }
  }
  return microseconds;
}

}  // namespace

bool HaveFping() { return FindFping() != nullptr; }

std::string RunFping(const std::vector<std::string>& options,
                     const std::vector<std::string>& targets, std::size_t answering,
                     Stopwatch& watch) {
  const Fping fping(options);
  const std::vector<std::string> once = {"-r", "0"};
  const Call start = StartOf(fping, targets, once);
  const Call all = fping.Ping(targets, once);
  const Call reported = fping.Ping(targets, {"-C", "1"});
  const int expected = answering == targets.size() ? kAllAnswered : kSomeSilent;
  if (start.status != kAllAnswered || all.status != expected || reported.status != expected) {
    return "fping failed: " + fping.Report();
  }
  const std::vector<int> roundTrips = ReadRoundTrips(fping.Report());
  if (roundTrips.size() != answering) {
    return std::to_string(roundTrips.size()) + " replies";
  }
  watch.Set(all.seconds - start.seconds, all.cpuSeconds - start.cpuSeconds);
  watch.Note(NoteRoundTrips(roundTrips));
  return {};
}

std::string NoteRoundTrips(std::vector<int> microseconds) {
  if (microseconds.empty()) {
    return {};
  }
  std::sort(microseconds.begin(), microseconds.end());
  return "round trip: median " + std::to_string(microseconds[microseconds.size() / 2]) +
         " us, least " + std::to_string(microseconds.front()) + " us";
}

}  // namespace netro::bench
