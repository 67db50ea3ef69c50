// fping takes the targets from a file and reports on its standard error, which is another.

#include "bench/Fping.h"

#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <fstream>
#include <sstream>

#include "bench/Process.h"
#include "bench/Program.h"

namespace netro::bench {
namespace {

constexpr int kStarts = 20;      // enough for one that nothing disturbed
constexpr int kAllAnswered = 0;  // exit status
constexpr int kSomeSilent = 1;

class Fping {
 public:
  explicit Fping(const std::vector<std::string>& options) : options_(options) {}

  ProgramRun Ping(const std::vector<std::string>& targets,
                  const std::vector<std::string>& mode) const {
    std::ofstream file(targetsFile_);
    for (const std::string& target : targets) {
      file << target << '\n';
    }
    file.close();
    std::vector<std::string> words = {FindFping(), "-q", "-f", targetsFile_};
    words.insert(words.end(), options_.begin(), options_.end());
    words.insert(words.end(), mode.begin(), mode.end());
    return RunProgram(words, reportFile_);
  }

  std::string Report() const {
    std::ostringstream text;
    text << std::ifstream(reportFile_).rdbuf();
    return text.str();
  }

 private:
  const std::vector<std::string> options_;
  const TempFolder folder_;
  const std::string targetsFile_ = folder_.Path() + "/targets";
  const std::string reportFile_ = folder_.Path() + "/report";
};

/// The least of each figure.
ProgramRun StartOf(const Fping& fping, const std::vector<std::string>& targets,
                   const std::vector<std::string>& mode) {
  ProgramRun least = fping.Ping({targets.front()}, mode);
  for (int i = 1; i < kStarts; ++i) {
    const ProgramRun call = fping.Ping({targets.front()}, mode);
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

std::string FindFping() {
  for (const char* path : {"/usr/bin/fping", "/usr/sbin/fping", "/usr/local/sbin/fping"}) {
    if (access(path, X_OK) == 0) {
      return path;
    }
  }
  return {};
}

std::string RunFping(const std::vector<std::string>& options,
                     const std::vector<std::string>& targets, std::size_t answering,
                     Stopwatch& watch) {
  const Fping fping(options);
  const std::vector<std::string> once = {"-r", "0"};
  const ProgramRun start = StartOf(fping, targets, once);
  const ProgramRun all = fping.Ping(targets, once);
  const ProgramRun reported = fping.Ping(targets, {"-C", "1"});
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
