// Registration and the final table. Thread: main.

#include "bench/Cases.h"

#include <benchmark/benchmark.h>

#include <algorithm>
#include <cstdio>
#include <deque>

namespace netro::bench {
namespace {

/// A deque, because Google Benchmark holds on to the cases while more are added.
std::deque<Case>& AllCases() {
  static std::deque<Case> cases;
  return cases;
}

void Run(benchmark::State& state, Case& measured) {
  Figures figures;
  for (auto _ : state) {
    figures = MeasureInChild(measured.work);
    state.SetIterationTime(figures.seconds);
  }
  if (!figures.error.empty()) {
    state.SkipWithError(figures.error.c_str());
  } else {
    state.counters[measured.unit + "/s"] = measured.units / figures.seconds;
    state.counters["cpu_s"] = figures.cpuSeconds;
    state.counters["peak_MiB"] = figures.peakMiB;
    state.SetLabel(figures.note);
  }
  measured.runs.push_back(std::move(figures));
}

/// The run with the least of a figure: whatever else the machine did only adds to it.
const Figures& LeastRun(const Case& measured, double Figures::*member) {
  const auto less = [member](const Figures& a, const Figures& b) { return a.*member < b.*member; };
  return *std::min_element(measured.runs.begin(), measured.runs.end(), less);
}

double Least(const Case& measured, double Figures::*member) {
  return LeastRun(measured, member).*member;
}

double PeakMiB(const Case& measured) {
  double peak = 0;
  for (const Figures& run : measured.runs) {
    peak = std::max(peak, run.peakMiB);
  }
  return peak;
}

double Rate(const Case& measured) { return measured.units / Least(measured, &Figures::seconds); }

double CpuMicroseconds(const Case& measured) {
  return Least(measured, &Figures::cpuSeconds) / measured.units * 1e6;
}

const std::string* ErrorOf(const Case& measured) {
  const auto failed = std::find_if(measured.runs.begin(), measured.runs.end(),
                                   [](const Figures& run) { return !run.error.empty(); });
  return failed == measured.runs.end() ? nullptr : &failed->error;
}

const Case* FindUsable(const std::string& id) {
  for (const Case& known : AllCases()) {
    if (known.Id() == id && !known.runs.empty() && ErrorOf(known) == nullptr) {
      return &known;
    }
  }
  return nullptr;
}

void PrintRow(const Case& row) {
  std::printf("%-38s %-9s ", row.name.c_str(), row.library.c_str());
  if (const std::string* error = ErrorOf(row)) {
    std::printf("failed: %s\n", error->c_str());
    return;
  }
  const double rate = Rate(row);
  std::printf("%9.*f %-13s %9.2f %9.1f", rate < 10 ? 1 : 0, rate, (row.unit + "/s").c_str(),
              CpuMicroseconds(row), PeakMiB(row));
  if (const Case* base = FindUsable(row.against)) {
    std::printf(" %7.2f %7.2f  %s", Rate(row) / Rate(*base),
                CpuMicroseconds(row) / CpuMicroseconds(*base),
                (base->name == row.name ? base->library : base->name).c_str());
  }
  if (const std::string& note = LeastRun(row, &Figures::seconds).note; !note.empty()) {
    std::printf("  %s", note.c_str());
  }
  std::printf("\n");
}

}  // namespace

void AddCase(Case added) {
  Case& kept = AllCases().emplace_back(std::move(added));
  benchmark::RegisterBenchmark(kept.Id().c_str(),
                               [&kept](benchmark::State& state) { Run(state, kept); })
      ->UseManualTime()
      ->Iterations(1)
      ->Unit(benchmark::kMillisecond);
}

void PrintTable() {
  std::printf("\n%-38s %-9s %9s %-13s %9s %9s %7s %7s\n", "", "", "rate", "", "CPU us", "peak RSS",
              "rate", "CPU");
  std::printf("%-38s %-9s %9s %-13s %9s %9s %7s %7s  %s\n", "case", "library", "", "", "per unit",
              "MiB", "ratio", "ratio", "set against");
  for (const Case& row : AllCases()) {
    if (!row.runs.empty()) {
      PrintRow(row);
    }
  }
}

}  // namespace netro::bench
