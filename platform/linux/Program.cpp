// A program is the child of a child, so that the system's first process takes its end in and nobody
// here has to. A pipe that its start closes carries the error of a failed one.
#include "platform/Program.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <utility>

#include "platform/ErrorNumbers.h"

namespace netro {
namespace {

// Kept away from the three standard numbers, which a program may have closed and which the started
// one gets anew.
class Descriptor {
 public:
  explicit Descriptor(int descriptor) : descriptor_(descriptor) {
    if (descriptor < 0 || descriptor > STDERR_FILENO) return;
    descriptor_ = fcntl(descriptor, F_DUPFD_CLOEXEC, STDERR_FILENO + 1);
    close(descriptor);
  }
  ~Descriptor() { Close(); }
  Descriptor(const Descriptor&) = delete;
  Descriptor& operator=(const Descriptor&) = delete;

  int Get() const { return descriptor_; }
  void Close() {
    if (const int descriptor = std::exchange(descriptor_, -1); descriptor >= 0) close(descriptor);
  }

 private:
  int descriptor_;
};

// Between fork and exec another thread's locks may be held for ever: nothing here allocates.
[[noreturn]] void ReportAndExit(int pipe) {
  const int error = errno;
  [[maybe_unused]] const ssize_t ignored = write(pipe, &error, sizeof error);
  _exit(1);
}

[[noreturn]] void BecomeProgram(char* const* arguments, int input, int output, int pipe) {
  sigset_t none;
  sigemptyset(&none);
  sigprocmask(SIG_SETMASK, &none, nullptr);
  std::signal(SIGPIPE, SIG_DFL);
  setsid();  // the terminal's Ctrl-C is not meant for it
  if (dup2(input, STDIN_FILENO) < 0 || dup2(output, STDOUT_FILENO) < 0 ||
      dup2(output, STDERR_FILENO) < 0) {
    ReportAndExit(pipe);
  }
  // What the host has opened is not meant for it either.
  close_range(STDERR_FILENO + 1, ~0U, CLOSE_RANGE_CLOEXEC);
  execvp(arguments[0], arguments);
  ReportAndExit(pipe);
}

int Launch(char* const* arguments, int input, int output, int pipe) {
  const pid_t child = fork();
  if (child < 0) return errno;
  if (child == 0) {
    const pid_t grandchild = fork();
    if (grandchild == 0) BecomeProgram(arguments, input, output, pipe);
    if (grandchild < 0) ReportAndExit(pipe);
    _exit(0);
  }
  while (waitpid(child, nullptr, 0) < 0 && errno == EINTR) {
  }
  return 0;
}

bool WriteAll(int descriptor, std::string_view text) {
  while (!text.empty()) {
    const ssize_t count = write(descriptor, text.data(), text.size());
    if (count < 0 && errno != EINTR) return false;
    if (count > 0) text.remove_prefix(static_cast<std::size_t>(count));
  }
  return lseek(descriptor, 0, SEEK_SET) == 0;
}

int ReadError(int pipe) {
  int error = 0;
  ssize_t count = 0;
  do {
    count = read(pipe, &error, sizeof error);
  } while (count < 0 && errno == EINTR);
  return count == sizeof error ? error : 0;
}

int Start(const std::string& program, const std::vector<std::string>& arguments,
          std::string_view input) {
  for (const std::string& text : arguments) {
    if (text.find('\0') != std::string::npos) return EINVAL;
  }
  if (program.empty() || program.find('\0') != std::string::npos) return ENOENT;
  std::vector<char*> list{const_cast<char*>(program.c_str())};
  for (const std::string& text : arguments) list.push_back(const_cast<char*>(text.c_str()));
  list.push_back(nullptr);

  const Descriptor in(memfd_create("input", MFD_CLOEXEC));
  const Descriptor out(open("/dev/null", O_WRONLY | O_CLOEXEC));
  int ends[2];
  if (in.Get() < 0 || out.Get() < 0 || pipe2(ends, O_CLOEXEC) != 0) return errno;
  const Descriptor readEnd(ends[0]);
  Descriptor writeEnd(ends[1]);
  if (!WriteAll(in.Get(), input)) return errno;
  if (const int error = Launch(list.data(), in.Get(), out.Get(), writeEnd.Get())) return error;
  writeEnd.Close();
  return ReadError(readEnd.Get());
}

}  // namespace

std::int32_t StartProgram(const std::string& program, const std::vector<std::string>& arguments,
                          std::string_view input) {
  const int error = Start(program, arguments, input);
  return error == 0 ? 0 : FileErrorNumber(error);
}

}  // namespace netro
