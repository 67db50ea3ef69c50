// The file that "netro watch --html" keeps.

#include "watch/WatchPageFile.h"

#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <memory>
#include <system_error>
#include <utility>

#include "terminal/System.h"
#include "watch/WatchPage.h"

namespace netro::tool {
namespace {

using File = std::unique_ptr<std::FILE, int (*)(std::FILE*)>;

/// What an earlier run with this number left behind is removed.
File Create(const std::string& name) {
  std::FILE* file = OpenNewFile(name);
  if (file == nullptr && errno == EEXIST && std::remove(name.c_str()) == 0)
    file = OpenNewFile(name);
  return File(file, std::fclose);
}

/// False for what a file must not take the place of, as a folder or a device.
bool IsReplaceable(const std::string& name) {
  using std::filesystem::file_type;
  std::error_code problem;
  const file_type type = std::filesystem::symlink_status(name, problem).type();
  return type == file_type::regular || type == file_type::symlink || type == file_type::not_found ||
         type == file_type::none;
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
  if (problem.empty() && !RenameOver(temporary, name_)) {
    problem = Failed(std::strerror(errno));
  }
  if (!problem.empty()) std::remove(temporary.c_str());
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
