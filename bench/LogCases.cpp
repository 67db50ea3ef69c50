// Both libraries write the same lines to a new file, and both collect some before they go to the
// system: 100 lines, and what the C library's buffer holds.

#include "bench/LogCases.h"

#include <netro/LogfileCLS.h>

#include <cstdint>
#include <filesystem>
#include <string>

#include "bench/Cases.h"
#include "bench/Process.h"

#ifdef NETRO_HAVE_SPDLOG
#include <spdlog/sinks/basic_file_sink.h>
#include <spdlog/spdlog.h>
#endif

namespace netro::bench {
namespace {

constexpr int kLines = 2'000'000;

// 100 bytes, as a line of a watcher's log has about.
const std::string kLine(98, 'x');

std::string CheckSize(const std::string& file, std::size_t lineEnd) {
  const std::uintmax_t expected = kLines * (kLine.size() + lineEnd);
  return std::filesystem::file_size(file) == expected ? "" : "lines are missing";
}

std::string WriteWithNetro(Stopwatch& watch) {
  const TempFolder folder;
  LogfileCLS log;
  log.LogFileName(folder.Path() + "/log");
  watch.Start();
  bool written = log.StartLogging();
  for (int i = 0; i < kLines; ++i) {
    written = log.LogEvent(kLine) && written;
  }
  written = log.StopLogging() && written;
  watch.Stop();
  return written ? CheckSize(log.LogFileName(), 2) : "could not write";
}

#ifdef NETRO_HAVE_SPDLOG
std::string WriteWithSpdlog(Stopwatch& watch) {
  const TempFolder folder;
  const std::string file = folder.Path() + "/log";
  watch.Start();
  {
    const auto log = spdlog::basic_logger_st("bench", file);
    log->set_pattern("%v");
    for (int i = 0; i < kLines; ++i) {
      log->info(kLine);
    }
    spdlog::drop("bench");
  }
  watch.Stop();
  return CheckSize(file, 1);
}
#endif

}  // namespace

void AddLogCases() {
  const std::string name = "log lines of 98 bytes";
#ifdef NETRO_HAVE_SPDLOG
  AddCase({name, "spdlog", "lines", kLines, "", WriteWithSpdlog});
#endif
  AddCase({name, "netro", "lines", kLines, name + "/spdlog", WriteWithNetro});
}

}  // namespace netro::bench
