#include "platform/Folder.h"

#include <algorithm>
#include <cerrno>

#include "platform/ErrorNumbers.h"
#include "platform/windows/System.h"

namespace netro {

// Without a separator npos + 1, which is 0.
std::size_t OwnNameAt(std::string_view path) { return path.find_last_of("/\\:") + 1; }

std::int32_t ListFolder(const std::string& path, std::vector<std::string>& names) {
  names.clear();
  FileFacts facts;
  if (const int error = ReadFacts(path, facts)) return FileErrorNumber(error);
  if (!facts.folder) return FileErrorNumber(ENOTDIR);
  WIN32_FIND_DATAW entry{};
  const HANDLE search = FindFirstFileW(Widen(path + "\\*").c_str(), &entry);
  if (search == INVALID_HANDLE_VALUE) return FileErrorNumber(LastFileError());
  do {
    std::string name = Narrow(entry.cFileName);
    if (name != "." && name != "..") names.push_back(std::move(name));
  } while (FindNextFileW(search, &entry) != 0);
  const DWORD error = GetLastError();
  FindClose(search);
  if (error != ERROR_NO_MORE_FILES) return FileErrorNumber(FileError(error));
  std::ranges::sort(names);
  return 0;
}

// The file system keeps its own journal of names; renames are written through. What is left is to
// say whether there is such a folder.
std::int32_t SyncFolder(const std::string& path) {
  FileFacts facts;
  if (const int error = ReadFacts(path, facts)) return FileErrorNumber(error);
  return facts.folder ? 0 : FileErrorNumber(ENOTDIR);
}

std::int32_t RenameFile(const std::string& from, const std::string& to) {
  const bool renamed = MoveFileExW(Widen(from).c_str(), Widen(to).c_str(),
                                   MOVEFILE_REPLACE_EXISTING | MOVEFILE_WRITE_THROUGH) != 0;
  return renamed ? 0 : FileErrorNumber(LastFileError());
}

}  // namespace netro
