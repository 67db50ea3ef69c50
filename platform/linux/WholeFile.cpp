#include "platform/WholeFile.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstddef>
#include <cstdlib>
#include <exception>
#include <span>

#include "platform/ErrorNumbers.h"
#include "platform/OutputFile.h"

namespace netro {
namespace {

// The system would take such a path for a shorter one.
bool HasNul(const std::string& path) { return path.find('\0') != std::string::npos; }

int ErrorOfKind(mode_t mode) {
  if (S_ISDIR(mode)) return EISDIR;
  return S_ISREG(mode) ? 0 : EINVAL;
}

/// Reads to the end, which the size at the start only hints at: the file may be growing.
int ReadAll(int descriptor, std::size_t sizeHint, std::string& text, std::size_t mostBytes) {
  std::size_t used = 0;
  text.resize(sizeHint + 1);
  while (true) {
    const ssize_t count = read(descriptor, text.data() + used, text.size() - used);
    if (count < 0 && errno == EINTR) continue;
    if (count < 0) return errno;
    if (count == 0) break;
    used += static_cast<std::size_t>(count);
    if (used > mostBytes) return EFBIG;
    if (used == text.size()) text.resize(used * 2);
  }
  text.resize(used);
  return 0;
}

int ReadRegularFile(int descriptor, std::string& text, std::size_t mostBytes) {
  struct stat facts {};
  if (fstat(descriptor, &facts) != 0) return errno;
  if (const int error = ErrorOfKind(facts.st_mode)) return error;
  const auto size = static_cast<std::size_t>(facts.st_size);
  return size > mostBytes ? EFBIG : ReadAll(descriptor, size, text, mostBytes);
}

bool IsFolder(const std::string& path) {
  struct stat facts {};
  return stat(path.c_str(), &facts) == 0 && S_ISDIR(facts.st_mode);
}

/// The value of an environment variable that holds an absolute path, else empty.
std::string PathFromEnvironment(const char* name) {
  const char* value = std::getenv(name);
  return value != nullptr && *value == '/' ? value : "";
}

}  // namespace

std::uint64_t FileStamp(const std::string& path) {
  struct stat facts {};
  if (stat(path.c_str(), &facts) != 0) facts = {};
  std::uint64_t stamp = 0;
  for (const auto part :
       {static_cast<std::uint64_t>(facts.st_ino), static_cast<std::uint64_t>(facts.st_size),
        static_cast<std::uint64_t>(facts.st_mtim.tv_sec),
        static_cast<std::uint64_t>(facts.st_mtim.tv_nsec)}) {
    stamp = (stamp ^ part) * 0x9E3779B97F4A7C15U;
    stamp ^= stamp >> 29;
  }
  return stamp;
}

std::int32_t ReadWholeFile(const std::string& path, std::string& text, std::size_t mostBytes,
                           Links links) {
  text.clear();
  if (HasNul(path)) return FileErrorNumber(EINVAL);
  // Non-blocking, since opening a pipe would wait for its writer.
  constexpr int kFlags = O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC;
  const int descriptor = open(path.c_str(), kFlags | (links == Links::Refused ? O_NOFOLLOW : 0));
  if (descriptor < 0) return FileErrorNumber(errno);
  int error = ENOMEM;
  try {
    error = ReadRegularFile(descriptor, text, mostBytes);
  } catch (const std::exception&) {  // not enough memory for it
  }
  close(descriptor);
  if (error == 0) return 0;
  text = {};
  return FileErrorNumber(error);
}

std::int32_t ReplaceFile(const std::string& path, const std::string& text) {
  return ReplaceFile(path, [&text](OutputFile& file) {
    const auto* const bytes = reinterpret_cast<const std::uint8_t*>(text.data());
    return file.Write(std::span(bytes, text.size()));
  });
}

std::int32_t ReplaceFile(const std::string& path,
                         const std::function<std::int32_t(OutputFile&)>& write) {
  if (HasNul(path)) return FileErrorNumber(EINVAL);
  struct stat facts {};
  if (lstat(path.c_str(), &facts) == 0 && !S_ISLNK(facts.st_mode)) {
    if (const int error = ErrorOfKind(facts.st_mode)) return FileErrorNumber(error);
  }
  const std::size_t slash = path.rfind('/');
  const std::string folder = slash == path.npos ? "." : path.substr(0, slash);
  OutputFile file;
  if (const std::int32_t error = file.CreateUnique(folder, ".netro-", "tmp")) return error;
  if (const std::int32_t error = write(file)) return error;
  return file.FinishAs(path);
}

std::int32_t CreateFolder(const std::string& path) {
  if (HasNul(path)) return FileErrorNumber(EINVAL);
  for (std::size_t end = path.find('/', 1); end != path.npos; end = path.find('/', end + 1)) {
    mkdir(path.substr(0, end).c_str(), 0700);  // the last one tells whether all went well
  }
  if (mkdir(path.c_str(), 0700) == 0) return 0;
  const int error = errno;
  return IsFolder(path) ? 0 : FileErrorNumber(error);
}

std::string UserConfigFolder() {
  const std::string folder = PathFromEnvironment("XDG_CONFIG_HOME");
  if (!folder.empty()) return folder;
  const std::string home = PathFromEnvironment("HOME");
  return home.empty() ? home : home + "/.config";
}

}  // namespace netro
