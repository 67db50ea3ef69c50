// Runs a fuzz target over a folder of inputs without libFuzzer, so that the corpus is an ordinary
// test in every build. Usage: <Name>Fuzz FOLDER
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <system_error>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

namespace {

namespace fs = std::filesystem;

bool RunFile(const fs::path& path) {
  std::ifstream file(path, std::ios::binary);
  const std::vector<char> bytes{std::istreambuf_iterator<char>(file), {}};
  if (!file) return false;
  // A copy of exactly this size lets AddressSanitizer see a read past the end.
  const std::vector<std::uint8_t> input(bytes.begin(), bytes.end());
  LLVMFuzzerTestOneInput(input.data(), input.size());
  return true;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 2) {
    std::fprintf(stderr, "usage: %s FOLDER\n", argv[0]);
    return 2;
  }
  std::error_code error;
  std::size_t count = 0;
  for (const fs::directory_entry& entry : fs::directory_iterator(argv[1], error)) {
    if (!entry.is_regular_file()) continue;
    if (!RunFile(entry.path())) {
      std::fprintf(stderr, "cannot read %s\n", entry.path().string().c_str());
      return 1;
    }
    ++count;
  }
  if (count == 0) {
    std::fprintf(stderr, "no input in %s: %s\n", argv[1], error.message().c_str());
    return 1;
  }
  std::printf("%zu inputs\n", count);
  return 0;
}
