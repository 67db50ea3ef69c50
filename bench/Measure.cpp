// The child sends its figures through a pipe, the texts last.

#include "bench/Measure.h"

#include <sys/resource.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <chrono>

#include "bench/Process.h"

namespace netro::bench {
namespace {

constexpr unsigned kLongestSeconds = 60;

struct Report {
  double seconds;
  double cpuSeconds;
  double peakMiB;
  std::array<char, 200> error;
  std::array<char, 100> note;
};

/// What does not fit is cut.
template <std::size_t size>
void Copy(const std::string& text, std::array<char, size>& to) {
  std::copy_n(text.begin(), std::min(text.size(), size - 1), to.begin());
}

double WallSeconds() {
  const auto now = std::chrono::steady_clock::now().time_since_epoch();
  return std::chrono::duration<double>(now).count();
}

double Seconds(const timeval& time) {
  return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_usec) / 1e6;
}

double CpuSecondsSoFar() {
  rusage usage{};
  getrusage(RUSAGE_SELF, &usage);
  return Seconds(usage.ru_utime) + Seconds(usage.ru_stime);
}

void RunAndReport(const Work& work, int pipe) {
  alarm(kLongestSeconds);
  Stopwatch watch;
  const std::string error = work(watch);
  rusage usage{};
  getrusage(RUSAGE_SELF, &usage);
  Report report{
      watch.Seconds(), watch.CpuSeconds(), static_cast<double>(usage.ru_maxrss) / 1024, {}, {}};
  Copy(error, report.error);
  Copy(watch.Note(), report.note);
  (void)!write(pipe, &report, sizeof report);
}

}  // namespace

void Stopwatch::Start() {
  seconds_ = -WallSeconds();
  cpuSeconds_ = -CpuSecondsSoFar();
}

void Stopwatch::Stop() {
  seconds_ += WallSeconds();
  cpuSeconds_ += CpuSecondsSoFar();
}

void Stopwatch::Set(double seconds, double cpuSeconds) {
  seconds_ = seconds;
  cpuSeconds_ = cpuSeconds;
}

Figures MeasureInChild(const Work& work) {
  std::array<int, 2> ends{};
  if (pipe(ends.data()) != 0) {
    return {0, 0, 0, "no pipe"};
  }
  ChildProcess child([&] { RunAndReport(work, ends[1]); });
  close(ends[1]);
  Report report{};
  const bool complete = read(ends[0], &report, sizeof report) == sizeof report;
  close(ends[0]);
  const int status = child.Wait();
  if (!complete) {
    return {0, 0, 0, "the measuring process ended early, status " + std::to_string(status)};
  }
  return {report.seconds, report.cpuSeconds, report.peakMiB, report.error.data(),
          report.note.data()};
}

}  // namespace netro::bench
