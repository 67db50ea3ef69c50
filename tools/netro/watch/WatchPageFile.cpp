// The file that "netro watch --html" keeps.

#include "watch/WatchPageFile.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <memory>
#include <utility>

#include "watch/WatchPage.h"

namespace netro::tool {
namespace {

using File = std::unique_ptr<std::FILE, int (*)(std::FILE*)>;

/// A new file with the rights that the user gives to new files. What an earlier run with this
/// number left behind is removed.
File Create(const std::string& name) {
  const auto open = [&name] {
    return ::open(name.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0666);
  };
  int descriptor = open();
  if (descriptor < 0 && errno == EEXIST && ::unlink(name.c_str()) == 0) descriptor = open();
  return File(descriptor < 0 ? nullptr : ::fdopen(descriptor, "w"), std::fclose);
}

/// False for what a file must not take the place of, as a folder or a device.
bool IsReplaceable(const std::string& name) {
  struct stat status {};
  return ::lstat(name.c_str(), &status) != 0 || S_ISREG(status.st_mode) || S_ISLNK(status.st_mode);
}

}  // namespace

WatchPageFile::WatchPageFile(std::string name) : name_(std::move(name)) {}

std::string WatchPageFile::Failed(const std::string& what) const {
  return "cannot write " + name_ + ": " + what;
}

std::string WatchPageFile::Write(const Watcher& watcher) {
  if (!IsReplaceable(name_)) return Failed("it is no ordinary file");
  const Stopwatch watch;
  const std::string temporary = name_ + "." + std::to_string(::getpid()) + ".tmp";
  std::string problem = WriteTo(temporary, watcher);
  if (problem.empty() && std::rename(temporary.c_str(), name_.c_str()) != 0) {
    problem = Failed(std::strerror(errno));
  }
  if (!problem.empty()) ::unlink(temporary.c_str());
  round_ = watcher.Rounds();
  cost_ = watch.Seconds();
  sinceWrite_.emplace();
  return problem;
}

std::string WatchPageFile::WriteTo(const std::string& temporary, const Watcher& watcher) const {
  File file = Create(temporary);
  if (!file) return Failed(std::strerror(errno));
  bool good = true;
  WriteWatchPage(watcher, [&](std::string_view html) {
    good = good && std::fwrite(html.data(), 1, html.size(), file.get()) == html.size();
  });
  good = good && std::fflush(file.get()) == 0;
  return good ? std::string() : Failed(std::strerror(errno));
}

std::string WatchPageFile::Update(const Watcher& watcher) {
  constexpr double kShare = 20;
  const bool isTooEarly = sinceWrite_ && sinceWrite_->Seconds() < kShare * cost_;
  if (round_ == watcher.Rounds() || isTooEarly) return {};
  return Write(watcher);
}

}  // namespace netro::tool
