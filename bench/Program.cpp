#include "bench/Program.h"

#include <fcntl.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include "bench/Measure.h"
#include "bench/Process.h"

namespace netro::bench {
namespace {

double ChildrenCpuSeconds() {
  rusage usage{};
  getrusage(RUSAGE_CHILDREN, &usage);
  const auto seconds = [](const timeval& time) {
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_usec) / 1e6;
  };
  return seconds(usage.ru_utime) + seconds(usage.ru_stime);
}

[[noreturn]] void Execute(std::vector<std::string>& words, const std::string& errorFile) {
  std::vector<char*> arguments;
  for (std::string& word : words) {
    arguments.push_back(word.data());
  }
  arguments.push_back(nullptr);
  dup2(open("/dev/null", O_WRONLY | O_CLOEXEC), STDOUT_FILENO);
  dup2(open(errorFile.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600), STDERR_FILENO);
  execv(arguments.front(), arguments.data());
  _exit(127);
}

}  // namespace

ProgramRun RunProgram(std::vector<std::string> words, const std::string& errorFile) {
  Stopwatch watch;
  const double cpuBefore = ChildrenCpuSeconds();
  watch.Start();
  ChildProcess program([&] { Execute(words, errorFile); });
  const int status = program.Wait();
  watch.Stop();
  return {watch.Seconds(), ChildrenCpuSeconds() - cpuBefore,
          WIFEXITED(status) ? WEXITSTATUS(status) : -1};
}

}  // namespace netro::bench
