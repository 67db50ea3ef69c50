#include <netro/LogfileCLS.h>

#include <utility>

#include "Scenario.h"
#include "tests/TemporaryFolder.h"

namespace netro::torture {
namespace {

const TemporaryFolder& Folder() {
  static const auto& folder = *new TemporaryFolder();
  return folder;
}

std::string line;  // of this call

bool Log(LogfileCLS& log) {
  const bool done = log.StartLogging() && log.LogEvent(line) && log.CommitBuffer();
  return log.StopLogging() && done;
}

// What was told to be in the file is there once, whatever failed before.
std::int32_t IsLogged(LogfileCLS& log, bool done) {
  static int number = 0;
  const std::string last = std::exchange(line, "line " + std::to_string(++number));
  if (!done) return 1;
  const std::string text = "\n" + ReadFile(log.LogFileName());
  const std::size_t found = text.find("\n" + last);
  const bool once = found != text.npos && text.find("\n" + last + "\n", found + 1) == text.npos;
  return once ? kDone : kWrongResult;
}

}  // namespace

std::vector<Scenario> FileScenarios() {
  return {
      Make<LogfileCLS>(
          "Logfile",
          [](World& world, LogfileCLS& log) {
            log.Events(&world.events);
            log.LogFileName(Folder() / "log.txt");
          },
          Log, IsLogged),
  };
}

}  // namespace netro::torture
