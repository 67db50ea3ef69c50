#include "diag/WatchState.h"

#include <filesystem>
#include <new>
#include <system_error>
#include <utility>

#include "diag/WatchProbe.h"
#include "diag/WatchStateText.h"
#include "platform/ErrorNumbers.h"
#include "platform/Folder.h"
#include "platform/WholeFile.h"

namespace netro {
namespace {

constexpr std::int32_t kFileNotFound = kSystemErrorBase + 2;

// A name that no earlier one has, as far as there are such.
std::string AsideName(const std::string& path) {
  constexpr int kMost = 99;
  std::error_code ignored;
  std::string name = path + ".bad";
  for (int i = 2; i <= kMost && std::filesystem::exists(name, ignored); ++i) {
    name = path + ".bad" + std::to_string(i);
  }
  return name;
}

// Nothing of it may be lost by writing a new one.
std::string SetAside(const std::string& path, const std::string& why) {
  const std::string aside = AsideName(path);
  const std::int32_t moved = RenameFile(path, aside);
  return "State '" + path + "': " + why + " " +
         (moved == 0 ? "The file is now '" + aside + "', and nothing is known of the hosts."
                     : "It stays: " + SystemErrorText(moved) + ".");
}

}  // namespace

WatchStateWriter::WatchStateWriter() : text_(WatchStateBegin()) {}

void WatchStateWriter::Add(const WatchMemory& memory, const WatchHistory& history) {
  AppendWatchHost(text_, memory, history);
  ++hosts_;
}

void WatchStateWriter::Add(const std::string& key, const std::string& value) {
  AppendWatchOther(text_, key, value);
}

std::int32_t WatchStateWriter::Replace(const std::string& path) const {
  return ReplaceFile(path, text_ + WatchStateEnd(hosts_));
}

std::string ReadWatchState(const std::string& path, const WatchStateReader& reader) {
  std::string text;
  const std::int32_t error = ReadWholeFile(path, text);
  if (error == kFileNotFound) return {};
  // What is short now is there later, as is the file.
  if (IsOwnLack(error)) throw std::bad_alloc();
  if (error != 0) return SetAside(path, SystemErrorText(error) + ".");
  WatchStateContent content;
  if (const std::size_t line = ParseWatchState(text, content)) {
    return SetAside(path, "line " + std::to_string(line) + " is damaged.");
  }
  for (auto& [memory, history] : content.hosts) reader.host(memory, history);
  for (const auto& [key, value] : content.others) reader.other(key, value);
  return {};
}

}  // namespace netro
