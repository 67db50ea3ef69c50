#include "platform/WholeFile.h"

#include <algorithm>
#include <cerrno>
#include <exception>
#include <span>

#include "platform/ErrorNumbers.h"
#include "platform/OutputFile.h"
#include "platform/windows/System.h"

namespace netro {
namespace {

bool HasNul(const std::string& path) { return path.find('\0') != std::string::npos; }

/// Reads to the end, which the size at the start only hints at: the file may be growing.
int ReadAll(HANDLE file, std::size_t sizeHint, std::string& text, std::size_t mostBytes) {
  std::size_t used = 0;
  text.resize(sizeHint + 1);
  while (true) {
    constexpr std::size_t kMost = 1 << 30;  // of one call of the system
    DWORD count = 0;
    const auto room = static_cast<DWORD>(std::min(text.size() - used, kMost));
    if (ReadFile(file, text.data() + used, room, &count, nullptr) == 0) return LastFileError();
    if (count == 0) break;
    used += count;
    if (used > mostBytes) return EFBIG;
    if (used == text.size()) text.resize(used * 2);
  }
  text.resize(used);
  return 0;
}

int ReadRegularFile(const std::string& path, std::string& text, std::size_t mostBytes,
                    Links links) {
  OpenWay way;
  way.followsLinks = links == Links::Followed;
  Handle file;
  FileFacts facts;
  if (const int error = OpenFile(path, way, file)) return error;
  if (const int error = ReadFacts(file.Get(), facts)) return error;
  if (const int error = ErrorOfKind(facts)) return error;
  if (facts.size > mostBytes) return EFBIG;
  return ReadAll(file.Get(), static_cast<std::size_t>(facts.size), text, mostBytes);
}

bool IsSeparator(char c) { return c == '/' || c == '\\'; }

std::string FolderOf(const std::string& path) {
  const std::size_t end = path.find_last_of("/\\");
  if (end == path.npos) return path.size() > 1 && path[1] == ':' ? path.substr(0, 2) : ".";
  return end == 0 || path[end - 1] == ':' ? path.substr(0, end + 1) : path.substr(0, end);
}

}  // namespace

std::uint64_t FileStamp(const std::string& path) {
  FileFacts facts;
  if (ReadFacts(path, facts) != 0) facts = {};
  std::uint64_t stamp = 0;
  for (const std::uint64_t part : {facts.number, facts.size, facts.changed}) {
    stamp = (stamp ^ part) * 0x9E3779B97F4A7C15U;
    stamp ^= stamp >> 29;
  }
  return stamp;
}

std::int32_t ReadWholeFile(const std::string& path, std::string& text, std::size_t mostBytes,
                           Links links) {
  text.clear();
  int error = ENOMEM;
  try {
    error = ReadRegularFile(path, text, mostBytes, links);
  } catch (const std::exception&) {  // not enough memory for it
  }
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
  FileFacts facts;
  if (ReadFacts(path, facts) == 0 && !facts.link) {
    if (const int error = ErrorOfKind(facts)) return FileErrorNumber(error);
  }
  OutputFile file;
  if (const std::int32_t error = file.CreateUnique(FolderOf(path), ".netro-", "tmp")) return error;
  if (const std::int32_t error = write(file)) return error;
  return file.FinishAs(path);
}

std::int32_t CreateFolder(const std::string& path) {
  if (HasNul(path)) return FileErrorNumber(EINVAL);
  for (std::size_t i = 1; i < path.size(); ++i) {  // the last one tells whether all went well
    if (IsSeparator(path[i])) CreateDirectoryW(Widen(path.substr(0, i)).c_str(), nullptr);
  }
  if (CreateDirectoryW(Widen(path).c_str(), nullptr) != 0) return 0;
  const int error = LastFileError();
  FileFacts facts;
  return ReadFacts(path, facts) == 0 && facts.folder ? 0 : FileErrorNumber(error);
}

std::string UserConfigFolder() {
  wchar_t folder[MAX_PATH];
  const DWORD length = GetEnvironmentVariableW(L"APPDATA", folder, MAX_PATH);
  return Narrow({folder, length < MAX_PATH ? length : 0});
}

}  // namespace netro
