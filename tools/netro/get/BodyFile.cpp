// The files that bodies are saved to.

#include "get/BodyFile.h"

#include <cerrno>
#include <cstdio>
#include <filesystem>
#include <memory>
#include <string_view>
#include <system_error>

namespace netro::tool {
namespace {

void CopyBodyTo(const std::string& name, const HttpResult& result) {
  std::unique_ptr<std::FILE, int (*)(std::FILE*)> file(std::fopen(name.c_str(), "wb"), std::fclose);
  bool good = file != nullptr;
  if (good) {
    ReadBody(result, [&](std::string_view block) {
      good = std::fwrite(block.data(), 1, block.size(), file.get()) == block.size();
      return good;
    });
    good = std::fflush(file.get()) == 0 && good;
  }
  if (good) return;
  const int problem = errno;
  DiscardBody(result);
  throw std::system_error(problem, std::generic_category(), "cannot write " + name);
}

}  // namespace

bool CanBeReplaced(const std::string& file) {
  using std::filesystem::file_type;
  std::error_code problem;
  const file_type type = std::filesystem::symlink_status(file, problem).type();
  return type == file_type::regular || type == file_type::not_found || type == file_type::none;
}

void SaveBody(const std::string& file, const HttpResult& result) {
  if (!CanBeReplaced(file)) {
    CopyBodyTo(file, result);
  } else if (std::FILE* opened = std::fopen(file.c_str(), "ab")) {
    std::fclose(opened);  // an answer without a body (204) made no file; an empty one is expected
  }
}

}  // namespace netro::tool
