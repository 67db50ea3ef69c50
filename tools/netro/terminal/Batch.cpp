// The queries of a command that asks for several things.

#include "terminal/Batch.h"

#include <netro/MessageLoop.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <exception>
#include <utility>

#include "terminal/Interrupt.h"
#include "terminal/OptionValues.h"
#include "terminal/Terminal.h"

namespace netro::tool {
namespace {

// What shows a result may be deep.
constexpr std::size_t kStack = std::size_t{1} << 20;

}  // namespace

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
  std::vector<Task> tasks;
  for (std::size_t i = 1; i < workers; ++i) {
    const Task task = MessageLoop::ForThisThread().StartTask([this] { Work(); }, kStack);
    if (task.Error() == 0) tasks.push_back(task);  // else the others do its work
  }
  if (tasks.empty()) {
    Work();
  } else {
    tasks.push_back(MessageLoop::ForThisThread().StartTask([this] { Work(); }, kStack));
    Await(tasks);
  }
  return begun_;
}

// Nothing that the tasks refer to goes before they have ended, whatever one of them throws.
void Batch::Await(const std::vector<Task>& tasks) {
  std::exception_ptr thrown;
  for (const Task& task : tasks) {
    while (!task.Done()) {
      try {
        task.Wait();  // ends with Ctrl-C, as the tasks do soon
      } catch (...) {
        thrown = std::current_exception();
        StopWaiting();
      }
    }
  }
  if (thrown) std::rethrow_exception(thrown);
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
