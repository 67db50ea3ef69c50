#include "platform/AppendFile.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <utility>

#include "platform/linux/Descriptor.h"

namespace netro {
namespace {

std::int32_t WriteAll(int descriptor, std::string_view text, std::size_t& written) {
  written = 0;
  while (written < text.size()) {
    const ssize_t now = write(descriptor, text.data() + written, text.size() - written);
    if (now < 0 && errno == EINTR) continue;
    if (now <= 0) return now < 0 ? errno : EIO;
    written += static_cast<std::size_t>(now);
  }
  return 0;
}

// A pipe whose reader has gone is an error like others, and no reason to end the program. The
// signal comes to the thread that writes.
class WithoutPipeSignal {
 public:
  WithoutPipeSignal() {
    sigemptyset(&pipe_);
    sigaddset(&pipe_, SIGPIPE);
    sigset_t pending;
    wasPending_ = sigpending(&pending) == 0 && sigismember(&pending, SIGPIPE) == 1;
    pthread_sigmask(SIG_BLOCK, &pipe_, &before_);
  }
  ~WithoutPipeSignal() {
    constexpr timespec kNoWait{};
    while (!wasPending_ && sigtimedwait(&pipe_, nullptr, &kNoWait) < 0 && errno == EINTR) {
    }
    pthread_sigmask(SIG_SETMASK, &before_, nullptr);
  }
  WithoutPipeSignal(const WithoutPipeSignal&) = delete;
  WithoutPipeSignal& operator=(const WithoutPipeSignal&) = delete;

 private:
  sigset_t pipe_;
  sigset_t before_;
  bool wasPending_ = false;
};

std::int32_t WriteHeader(int descriptor, std::string_view header, const struct stat& facts) {
  std::size_t written = 0;
  if (header.empty() || facts.st_size != 0) return 0;
  return WriteAll(descriptor, header, written);
}

// Names of what the program has open, which are links of the system's own.
bool IsDescriptorName(std::string_view path) {
  if (path == "/dev/stdout" || path == "/dev/stderr") return true;
  for (const std::string_view folder : {"/dev/fd/", "/proc/self/fd/"}) {
    if (!path.starts_with(folder)) continue;
    const std::string_view number = path.substr(folder.size());
    return !number.empty() && number.find_first_not_of("0123456789") == number.npos;
  }
  return false;
}

// Who may write to the folder could lead the lines into another file of the program's user. A pipe
// is not waited for, neither until it has a reader nor until that reads on.
int Opened(const std::string& path) {
  constexpr int kFlags = O_WRONLY | O_APPEND | O_CREAT | O_NOCTTY | O_CLOEXEC | O_NONBLOCK;
  const int links = IsDescriptorName(path) ? 0 : O_NOFOLLOW;
  return AwayFromZero(open(path.c_str(), kFlags | links, 0640));
}

}  // namespace

bool AppendFile::FactsOf(const char* path, Identity& identity, std::uint64_t& size) {
  struct stat facts {};
  if (stat(path, &facts) != 0) return false;
  identity = {facts.st_dev, facts.st_ino};
  size = static_cast<std::uint64_t>(facts.st_size);
  return true;
}

std::int32_t AppendFile::Open(const std::string& path, std::string_view header) {
  if (path.find('\0') != path.npos) return EINVAL;
  std::string name = path;
  const bool made = !FileExists(path);
  const int descriptor = Opened(path);
  if (descriptor < 0) return errno;
  struct stat facts {};
  std::int32_t error = fstat(descriptor, &facts) != 0 ? errno : 0;
  const bool isPipe = S_ISFIFO(facts.st_mode);
  if (error == 0 && !isPipe) error = WriteHeader(descriptor, header, facts);
  if (error != 0) {
    close(descriptor);
    if (made) unlink(path.c_str());
    return error;
  }
  Close();
  handle_ = descriptor;
  isPipe_ = isPipe;
  path_ = std::move(name);
  file_ = {facts.st_dev, facts.st_ino};
  std::uint64_t ignored = 0;
  FactsOf("/", root_, ignored);
  return 0;
}

void AppendFile::Close() {
  if (IsOpen()) close(Descriptor(std::exchange(handle_, kNone)));
}

AppendFile::Standing AppendFile::Look() const {
  Standing standing;
  Identity named;
  if (FactsOf(path_.c_str(), named, standing.size) && named == file_) {
    standing.named = true;
    return standing;
  }
  // After a chroot the path would lead to another place.
  Identity root;
  std::uint64_t ignored = 0;
  standing.named = FactsOf("/", root, ignored) && root != root_;
  struct stat facts {};
  if (fstat(Descriptor(handle_), &facts) == 0) {
    standing.removed = facts.st_nlink == 0;
    standing.size = static_cast<std::uint64_t>(facts.st_size);
  }
  return standing;
}

// Some files never have a name and yet are found by one, below /proc.
bool AppendFile::IsRemoved() const {
  struct stat facts {};
  return fstat(Descriptor(handle_), &facts) == 0 && facts.st_nlink == 0 && Look().removed;
}

std::int32_t AppendFile::Write(std::string_view text, std::size_t& written) const {
  if (!isPipe_) return WriteAll(Descriptor(handle_), text, written);
  const WithoutPipeSignal quiet;
  return WriteAll(Descriptor(handle_), text, written);
}

bool AppendFile::EndsInLine() const {
  const int descriptor =
      AwayFromZero(open(path_.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC | O_NOFOLLOW));
  if (descriptor < 0) return true;
  struct stat facts {};
  char last = '\n';
  if (fstat(descriptor, &facts) == 0 && S_ISREG(facts.st_mode) &&
      Identity{facts.st_dev, facts.st_ino} == file_ && facts.st_size > 0 &&
      pread(descriptor, &last, 1, facts.st_size - 1) != 1) {
    last = '\n';
  }
  close(descriptor);
  return last == '\n';
}

void AppendFile::StartWriteback() const {
  // Pipes and devices refuse this, which is no loss.
  static_cast<void>(sync_file_range(Descriptor(handle_), 0, 0, SYNC_FILE_RANGE_WRITE));
}

}  // namespace netro
