// The queries of a command that asks for several things.

#include "terminal/Batch.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <utility>

#include "terminal/Interrupt.h"
#include "terminal/OptionValues.h"
#include "terminal/Terminal.h"

namespace netro::tool {

void DeclareParallel(CLI::App& options, std::int32_t& parallel, const std::string& use) {
  options.add_option("--parallel", parallel, use + "; 8 if not given")
      ->type_name("COUNT")
      ->group("Connection");
}

void CheckParallel(std::int32_t parallel) {
  constexpr std::int32_t kMost =
      1000;  // each may hold a descriptor, of which there are often 1,024
  CheckRange("--parallel", parallel, 1, kMost);
}

void TellNotBegun(std::size_t rest, std::size_t all, const std::string& what) {
  if (rest == 0 || !Flush()) return;
  ShowMessage("interrupted; " + std::to_string(rest) + " of " + std::to_string(all) + " " + what +
              " were not asked for");
}

std::size_t Batch::Run(std::size_t count, std::function<void(std::size_t)> perform,
                       std::function<bool(std::size_t)> show) {
  perform_ = std::move(perform);
  show_ = std::move(show);
  ended_.assign(count, false);
  const InterruptGuard guard(*this);
  const std::size_t workers = std::min(count, static_cast<std::size_t>(parallel_));
  for (std::size_t i = 0; i < workers; ++i) Work();
  return begun_;
}

void Batch::Work() {
  while (!stopped_ && begun_ < ended_.size()) {
    const std::size_t index = begun_++;
    perform_(index);
    Ended(index);
  }
}

void Batch::Ended(std::size_t index) {
  ended_[index] = true;
  while (shown_ < ended_.size() && ended_[shown_]) {
    if (!show_(shown_++)) StopWaiting();
  }
}

void Batch::StopWaiting() {
  stopped_ = true;
  any_.Kill();
}

}  // namespace netro::tool
