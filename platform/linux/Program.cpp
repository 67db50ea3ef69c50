// posix_spawn starts a program without copying this process's page tables, which takes 0.1 s for
// each gigabyte. The program is a child of this process and so would stay as a zombie until
// somebody takes its end in. A handle (pidfd) says which child is meant, also when the host has
// taken in the ends of all children itself and the number belongs to another process by now.
#include "platform/Program.h"

#include <fcntl.h>
#include <spawn.h>
#include <sys/mman.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <mutex>

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
  ~Descriptor() {
    if (descriptor_ >= 0) close(descriptor_);
  }
  Descriptor(const Descriptor&) = delete;
  Descriptor& operator=(const Descriptor&) = delete;

  int Get() const { return descriptor_; }

 private:
  int descriptor_;
};

// How a program is started: with the signals as a login has them, in a session of its own, since
// the terminal's Ctrl-C is not meant for it, and with the three standard descriptors only.
class Launch {
 public:
  Launch(int input, int output) {
    posix_spawn_file_actions_init(&actions_);
    posix_spawn_file_actions_adddup2(&actions_, input, STDIN_FILENO);
    posix_spawn_file_actions_adddup2(&actions_, output, STDOUT_FILENO);
    posix_spawn_file_actions_adddup2(&actions_, output, STDERR_FILENO);
    posix_spawn_file_actions_addclosefrom_np(&actions_, STDERR_FILENO + 1);
    posix_spawnattr_init(&attributes_);
    sigset_t signals;
    sigemptyset(&signals);
    posix_spawnattr_setsigmask(&attributes_, &signals);
    sigaddset(&signals, SIGPIPE);
    posix_spawnattr_setsigdefault(&attributes_, &signals);
    posix_spawnattr_setflags(
        &attributes_,
        static_cast<short>(POSIX_SPAWN_SETSID | POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF));
  }
  ~Launch() {
    posix_spawn_file_actions_destroy(&actions_);
    posix_spawnattr_destroy(&attributes_);
  }
  Launch(const Launch&) = delete;
  Launch& operator=(const Launch&) = delete;

  int Start(pid_t& id, std::vector<char*> arguments) const {
    const int error =
        posix_spawnp(&id, arguments[0], &actions_, &attributes_, arguments.data(), environ);
    if (error != ENOEXEC) return error;
    // A script without a first line that names its interpreter is the shell's, which finds it in
    // the same places.
    static char shell[] = "/bin/sh", option[] = "-c", text[] = "exec \"$0\" \"$@\"";
    arguments.insert(arguments.begin(), {shell, option, text});
    return posix_spawn(&id, shell, &actions_, &attributes_, arguments.data(), environ);
  }

 private:
  posix_spawn_file_actions_t actions_;
  posix_spawnattr_t attributes_;
};

bool WriteAll(int descriptor, std::string_view text) {
  while (!text.empty()) {
    const ssize_t count = write(descriptor, text.data(), text.size());
    if (count < 0 && errno != EINTR) return false;
    if (count > 0) text.remove_prefix(static_cast<std::size_t>(count));
  }
  return lseek(descriptor, 0, SEEK_SET) == 0;
}

int Spawn(pid_t& id, const std::string& program, const std::vector<std::string>& arguments,
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
  if (in.Get() < 0 || out.Get() < 0 || !WriteAll(in.Get(), input)) return errno;
  return Launch(in.Get(), out.Get()).Start(id, std::move(list));
}

// Where the system has no handles, or none left, the number has to do.
bool TakeEndIn(std::intptr_t id, std::intptr_t handle) {
  siginfo_t end{};
  const int found = handle >= 0
                        ? waitid(P_PIDFD, static_cast<id_t>(handle), &end, WEXITED | WNOHANG)
                        : waitid(P_PID, static_cast<id_t>(id), &end, WEXITED | WNOHANG);
  // Whoever else has taken the end in: there is no such child any more.
  return found != 0 ? errno == ECHILD : end.si_pid != 0;
}

struct Left {
  std::intptr_t id;
  std::intptr_t handle;
};

void CloseHandle(std::intptr_t handle) {
  if (handle >= 0) close(static_cast<int>(handle));
}

// The programs that nobody looks after any more, and that may not have ended yet.
std::mutex leftMutex;
std::vector<Left>& LeftPrograms() {
  static std::vector<Left>* const left = new std::vector<Left>;  // outlives every static object
  return *left;
}

bool TakeLeftIn(const Left& left) {
  if (!TakeEndIn(left.id, left.handle)) return false;
  CloseHandle(left.handle);
  return true;
}

void TakeLeftProgramsIn() {
  const std::lock_guard lock(leftMutex);
  std::erase_if(LeftPrograms(), TakeLeftIn);
}

}  // namespace

RunningProgram::~RunningProgram() {
  if (HasEnded()) return;
  try {
    const std::lock_guard lock(leftMutex);
    LeftPrograms().push_back({id_, handle_});
  } catch (const std::bad_alloc&) {  // a zombie, until this process ends
    CloseHandle(handle_);
  }
}

std::int32_t RunningProgram::Start(const std::string& program,
                                   const std::vector<std::string>& arguments,
                                   std::string_view input) {
  TakeLeftProgramsIn();
  pid_t id = 0;
  const int error = Spawn(id, program, arguments, input);
  if (error != 0) return FileErrorNumber(error);
  id_ = id;
  handle_ = syscall(SYS_pidfd_open, id, 0);
  return 0;
}

bool RunningProgram::HasEnded() {
  if (id_ == 0) return true;
  if (!TakeEndIn(id_, handle_)) return false;
  CloseHandle(std::exchange(handle_, -1));
  id_ = 0;
  return true;
}

void RunningProgram::Kill() {
  // Until its end is taken in nobody else can have the number.
  if (!HasEnded()) kill(-static_cast<pid_t>(id_), SIGKILL);
}

std::int32_t StartProgram(const std::string& program, const std::vector<std::string>& arguments,
                          std::string_view input) {
  return RunningProgram().Start(program, arguments, input);
}

}  // namespace netro
