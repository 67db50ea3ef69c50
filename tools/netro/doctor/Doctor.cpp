// "netro doctor": the table of layers, and the walk through it.

#include "doctor/Doctor.h"

#include <CLI/CLI.hpp>
#include <iterator>
#include <memory>
#include <string>

#include "doctor/Checkup.h"
#include "doctor/DoctorOptions.h"
#include "doctor/DoctorOutput.h"
#include "terminal/Batch.h"
#include "terminal/Stopwatch.h"

namespace netro::tool {
namespace {

struct Layer {
  const char* name;
  void (*check)(Checkup& checkup);
  bool isAlone = false;  // needs nothing of what is below
};

constexpr Layer kLayers[] = {
    {"adapter", CheckAdapter},   {"route", CheckRoute},   {"neighbour", CheckNeighbour},
    {"resolver", CheckResolver}, {"name", CheckName},     {"address", CheckAddress},
    {"path", CheckPath},         {"port", CheckPort},     {"proxy", CheckProxy},
    {"tls", CheckTls},           {"answer", CheckAnswer}, {"clock", CheckClock, true},
};

void Examine(Checkup& checkup, const Layer& layer, WalkEnd& end) {
  const Finding* broken = checkup.Broken();
  const bool isLate = checkup.Left() == 0;
  const bool isNeedless = broken != nullptr && !layer.isAlone;
  if (!isLate && !isNeedless) return layer.check(checkup);
  if (isLate) end = WalkEnd::Late;
  checkup.Add({layer.name, FindingState::Skipped, "not tried",
               isNeedless ? broken->layer + " is broken" : "the limit of all steps is over", ""});
}

int RunDoctor(const DoctorOptions& options) {
  const Stopwatch watch;
  bool isRead = true;
  const bool isText = !options.json;
  Checkup checkup(ReadDoctorRequest(options), [&](const Finding& finding) {
    if (isText) isRead = PrintFinding(finding) && isRead;
  });
  if (isText) PrintDoctorHead(checkup.request);
  Batch batch(1);
  WalkEnd end = WalkEnd::Whole;
  checkup.isStopped = [&batch] { return batch.IsStopped(); };
  batch.Run(
      std::size(kLayers), [&](std::size_t i) { Examine(checkup, kLayers[i], end); },
      [&](std::size_t) { return isRead; });
  if (batch.IsStopped()) end = WalkEnd::Interrupted;
  const Finding* verdict = VerdictOf(checkup.Findings());
  if (isText) {
    PrintVerdict(verdict, end);
  } else {
    PrintDoctorJson(checkup, verdict, end, watch.Seconds());
  }
  return verdict == nullptr && end == WalkEnd::Whole ? Success : QueryFailed;
}

}  // namespace

CommandRun SetUpDoctor(CLI::App& options) {
  const auto values = std::make_shared<DoctorOptions>();
  DeclareDoctorOptions(options, *values);
  return [values] { return RunDoctor(*values); };
}

}  // namespace netro::tool
