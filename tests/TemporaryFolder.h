// A folder of one test's own below the system's temporary folder, deleted with all it holds.
#pragma once

#include <cstddef>
#include <filesystem>
#include <fstream>
#include <random>
#include <string>

namespace netro {

class TemporaryFolder {
 public:
  TemporaryFolder() {
    std::random_device number;
    std::error_code failed;
    do {
      const std::string name = "netro-test-" + std::to_string(number());
      path_ = (std::filesystem::temp_directory_path() / name).string();
    } while (!std::filesystem::create_directory(path_, failed) && !failed);
    if (failed) path_.clear();
  }
  ~TemporaryFolder() {
    std::error_code ignored;
    if (!path_.empty()) std::filesystem::remove_all(path_, ignored);
  }
  TemporaryFolder(const TemporaryFolder&) = delete;
  TemporaryFolder& operator=(const TemporaryFolder&) = delete;

  const std::string& Path() const { return path_; }
  std::string operator/(const std::string& name) const { return path_ + "/" + name; }

 private:
  std::string path_;
};

inline std::string ReadFile(const std::string& name) {
  std::ifstream file(name, std::ios::binary);
  std::string bytes;
  char block[65536];
  while (file.read(block, sizeof block), file.gcount() > 0)
    bytes.append(block, static_cast<std::size_t>(file.gcount()));
  return bytes;
}

inline void WriteFile(const std::string& name, const std::string& bytes) {
  std::ofstream(name, std::ios::binary) << bytes;
}

}  // namespace netro
