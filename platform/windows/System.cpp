#include "platform/windows/System.h"

#include <cerrno>

namespace netro {
namespace {

struct Pair {
  DWORD system;
  int file;
};

constexpr Pair kPairs[] = {
    {ERROR_SUCCESS, 0},
    {ERROR_FILE_NOT_FOUND, ENOENT},
    {ERROR_PATH_NOT_FOUND, ENOENT},
    {ERROR_INVALID_NAME, ENOENT},
    {ERROR_BAD_NETPATH, ENOENT},
    {ERROR_BAD_NET_NAME, ENOENT},
    {ERROR_BAD_PATHNAME, ENOENT},
    {ERROR_INVALID_DRIVE, ENOENT},
    {ERROR_NO_MORE_FILES, ENOENT},
    {ERROR_FILENAME_EXCED_RANGE, ENAMETOOLONG},
    {ERROR_ACCESS_DENIED, EACCES},
    {ERROR_SHARING_VIOLATION, EACCES},
    {ERROR_CANNOT_MAKE, EACCES},
    {ERROR_NETWORK_ACCESS_DENIED, EACCES},
    {ERROR_DELETE_PENDING, EACCES},
    {ERROR_WRITE_PROTECT, EROFS},
    {ERROR_LOCK_VIOLATION, EWOULDBLOCK},
    {ERROR_IO_PENDING, EWOULDBLOCK},
    {ERROR_TOO_MANY_OPEN_FILES, EMFILE},
    {ERROR_INVALID_HANDLE, EBADF},
    {ERROR_NOT_ENOUGH_MEMORY, ENOMEM},
    {ERROR_OUTOFMEMORY, ENOMEM},
    {ERROR_NO_SYSTEM_RESOURCES, ENOMEM},
    {ERROR_NOT_ENOUGH_QUOTA, ENOMEM},
    {ERROR_FILE_EXISTS, EEXIST},
    {ERROR_ALREADY_EXISTS, EEXIST},
    {ERROR_HANDLE_DISK_FULL, ENOSPC},
    {ERROR_DISK_FULL, ENOSPC},
    {ERROR_BROKEN_PIPE, EPIPE},
    {ERROR_NO_DATA, EPIPE},
    {ERROR_NOT_SAME_DEVICE, EXDEV},
    {ERROR_DIR_NOT_EMPTY, ENOTEMPTY},
    {ERROR_DIRECTORY, ENOTDIR},
    {ERROR_BUSY, EBUSY},
    {ERROR_BAD_EXE_FORMAT, ENOEXEC},
    {ERROR_EXE_MACHINE_TYPE_MISMATCH, ENOEXEC},
    {ERROR_INVALID_PARAMETER, EINVAL},
    {ERROR_NOT_SUPPORTED, EINVAL},
    {ERROR_NEGATIVE_SEEK, EINVAL},
    {ERROR_CANT_RESOLVE_FILENAME, ELOOP},
};

std::uint64_t Join(DWORD high, DWORD low) { return std::uint64_t{high} << 32 | low; }

}  // namespace

std::wstring Widen(std::string_view utf8) {
  const int size = static_cast<int>(utf8.size());
  const int length = MultiByteToWideChar(CP_UTF8, 0, utf8.data(), size, nullptr, 0);
  std::wstring wide(static_cast<std::size_t>(length), L'\0');
  MultiByteToWideChar(CP_UTF8, 0, utf8.data(), size, wide.data(), length);
  return wide;
}

std::string Narrow(std::wstring_view wide) {
  const int size = static_cast<int>(wide.size());
  const int length =
      WideCharToMultiByte(CP_UTF8, 0, wide.data(), size, nullptr, 0, nullptr, nullptr);
  std::string utf8(static_cast<std::size_t>(length), '\0');
  WideCharToMultiByte(CP_UTF8, 0, wide.data(), size, utf8.data(), length, nullptr, nullptr);
  return utf8;
}

int FileError(DWORD systemError) {
  for (const Pair& pair : kPairs) {
    if (pair.system == systemError) return pair.file;
  }
  return EIO;
}

int ReadFacts(HANDLE file, FileFacts& facts) {
  facts = {};
  facts.device_like = GetFileType(file) != FILE_TYPE_DISK;
  if (facts.device_like) return 0;
  BY_HANDLE_FILE_INFORMATION found{};
  if (GetFileInformationByHandle(file, &found) == 0) return LastFileError();
  facts.device = found.dwVolumeSerialNumber;
  facts.number = Join(found.nFileIndexHigh, found.nFileIndexLow);
  facts.size = Join(found.nFileSizeHigh, found.nFileSizeLow);
  facts.changed = Join(found.ftLastWriteTime.dwHighDateTime, found.ftLastWriteTime.dwLowDateTime);
  facts.folder = (found.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) != 0;
  facts.link = (found.dwFileAttributes & FILE_ATTRIBUTE_REPARSE_POINT) != 0;
  return 0;
}

int ReadFacts(const std::string& path, FileFacts& facts) {
  constexpr DWORD kFlags = FILE_FLAG_BACKUP_SEMANTICS | FILE_FLAG_OPEN_REPARSE_POINT;
  constexpr DWORD kShare = FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE;
  const Handle file(CreateFileW(Widen(path).c_str(), FILE_READ_ATTRIBUTES, kShare, nullptr,
                                OPEN_EXISTING, kFlags, nullptr));
  return file.IsOpen() ? ReadFacts(file.Get(), facts) : LastFileError();
}

int ErrorOfKind(const FileFacts& facts) {
  if (facts.folder) return EISDIR;
  return facts.device_like ? EINVAL : 0;
}

int OpenFile(const std::string& path, const OpenWay& way, Handle& file) {
  if (path.find('\0') != std::string::npos) return EINVAL;
  constexpr DWORD kShare = FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE;
  // Folders are opened too, so that they are told from files that may not be read.
  DWORD flags = FILE_ATTRIBUTE_NORMAL | FILE_FLAG_BACKUP_SEMANTICS;
  if (!way.followsLinks) flags |= FILE_FLAG_OPEN_REPARSE_POINT;
  Handle opened(
      CreateFileW(Widen(path).c_str(), way.access, kShare, nullptr, way.creation, flags, nullptr));
  if (!opened.IsOpen()) {
    const int error = LastFileError();
    FileFacts facts;
    const bool isFolder = error == EACCES && ReadFacts(path, facts) == 0 && facts.folder;
    return isFolder ? EISDIR : error;
  }
  FileFacts facts;
  if (const int error = ReadFacts(opened.Get(), facts)) return error;
  if (facts.link && !way.followsLinks) return ELOOP;
  file = std::move(opened);
  return 0;
}

}  // namespace netro
