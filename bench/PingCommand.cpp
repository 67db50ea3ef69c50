// One host is asked again and again, with a line for each reply. Most of the time both sleep, and
// what one ping costs is that a program wakes up whose code has left the processor's caches.

#include "bench/PingCommand.h"

#include <unistd.h>

#include <cstdio>
#include <filesystem>
#include <string>
#include <vector>

#include "bench/Cases.h"
#include "bench/Fping.h"
#include "bench/PingNetwork.h"
#include "bench/Process.h"
#include "bench/Program.h"

namespace netro::bench {
namespace {

constexpr const char* kHost = "127.0.0.1";

struct Pace {
  std::string name;
  int count = 0;
  std::string seconds;
  std::string milliseconds;
};

std::string FindCommand() {
  std::error_code error;
  const auto self = std::filesystem::read_symlink("/proc/self/exe", error);
  const std::string path = self.parent_path() / "netro";
  return access(path.c_str(), X_OK) == 0 ? path : "";
}

void Add(const Pace& pace, const std::string& program, const std::vector<std::string>& words,
         const std::string& against) {
  AddCase({pace.name, program, "pings", static_cast<double>(pace.count), against,
           [words](Stopwatch& watch) -> std::string {
             if (!EnterPingNetwork(PingSocket::Raw)) {
               return "no own network";
             }
             const TempFolder folder;
             const ProgramRun run = RunProgram(words, folder.Path() + "/errors");
             watch.Set(run.seconds, run.cpuSeconds);
             return run.status == 0 ? "" : "exit status " + std::to_string(run.status);
           }});
}

}  // namespace

void AddPingCommandCases() {
  const std::string command = FindCommand();
  if (command.empty()) {
    std::fprintf(stderr, "left out: the command netro ping (it is not beside this program)\n");
    return;
  }
  for (const Pace& pace : {Pace{"the command, a ping every 10 ms", 1'000, "0.01", "10"},
                           Pace{"the command, a ping every 1 ms", 5'000, "0.001", "1"}}) {
    const std::string count = std::to_string(pace.count);
    if (const std::string fping = FindFping(); !fping.empty()) {
      Add(pace, "fping", {fping, "-i", "1", "-p", pace.milliseconds, "-c", count, kHost}, "");
    }
    Add(pace, "netro", {command, "ping", "-i", pace.seconds, "-c", count, kHost},
        pace.name + "/fping");
  }
}

}  // namespace netro::bench
