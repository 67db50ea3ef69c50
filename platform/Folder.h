// Paths, what a folder holds, and changes of it that outlive a power failure. Functions return the
// error number (20000 plus the system's), 0 for success. Any thread.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace netro {

/// Where the own name of a file begins in a path: behind its last folder.
std::size_t OwnNameAt(std::string_view path);

/// The names of all that is in the folder, sorted.
std::int32_t ListFolder(const std::string& path, std::vector<std::string>& names);

/// Has the names of a folder written to the disk: a file is there for good only then.
std::int32_t SyncFolder(const std::string& path);

/// Gives a file another name, replacing what had it.
std::int32_t RenameFile(const std::string& from, const std::string& to);

}  // namespace netro
