#include "platform/Folder.h"

#include <dirent.h>
#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <memory>

#include "platform/ErrorNumbers.h"
#include "platform/linux/Descriptor.h"

namespace netro {

// Without a separator npos + 1, which is 0.
std::size_t OwnNameAt(std::string_view path) { return path.rfind('/') + 1; }

std::int32_t ListFolder(const std::string& path, std::vector<std::string>& names) {
  names.clear();
  const auto shut = [](DIR* folder) { closedir(folder); };
  const std::unique_ptr<DIR, decltype(shut)> folder(opendir(path.c_str()), shut);
  if (folder == nullptr) return FileErrorNumber(errno);
  errno = 0;
  while (const dirent* entry = readdir(folder.get())) {
    std::string name = entry->d_name;
    if (name != "." && name != "..") names.push_back(std::move(name));
    errno = 0;
  }
  if (errno != 0) return FileErrorNumber(errno);
  std::ranges::sort(names);
  return 0;
}

std::int32_t SyncFolder(const std::string& path) {
  const int descriptor = AwayFromZero(open(path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  if (descriptor < 0) return FileErrorNumber(errno);
  const int error = fsync(descriptor) != 0 ? errno : 0;
  close(descriptor);
  return error == 0 ? 0 : FileErrorNumber(error);
}

std::int32_t RenameFile(const std::string& from, const std::string& to) {
  return std::rename(from.c_str(), to.c_str()) == 0 ? 0 : FileErrorNumber(errno);
}

}  // namespace netro
