// A folder that stands in for the system's root while a test runs, with the files that it puts in.
#pragma once

#include <filesystem>
#include <string>

#include "TemporaryFolder.h"
#include "platform/SystemFiles.h"

namespace netro {

class SystemRoot {
 public:
  SystemRoot() { UseSystemRootForTests(folder_.Path()); }
  ~SystemRoot() { UseSystemRootForTests(std::string()); }
  SystemRoot(const SystemRoot&) = delete;
  SystemRoot& operator=(const SystemRoot&) = delete;

  std::string Path(const std::string& relative) const { return folder_ / relative; }
  /// `relative` is "etc/hosts" and the like; its folders are made.
  void Put(const std::string& relative, const std::string& text) {
    std::filesystem::create_directories(std::filesystem::path(Path(relative)).parent_path());
    WriteFile(Path(relative), text);
  }
  void Remove(const std::string& relative) { std::filesystem::remove(Path(relative)); }

 private:
  TemporaryFolder folder_;
};

}  // namespace netro
