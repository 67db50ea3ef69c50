// What is the same on every system: names.
#include "platform/AppendFile.h"

#include <filesystem>
#include <system_error>

namespace netro {

std::string AbsolutePath(const std::string& path) {
  std::error_code error;
  const std::filesystem::path absolute = std::filesystem::absolute(path, error);
  return error || path.empty() ? path : absolute.string();
}

bool FileExists(const std::string& path) {
  std::error_code error;
  const auto type = std::filesystem::status(path, error).type();
  return type != std::filesystem::file_type::not_found;
}

}  // namespace netro
