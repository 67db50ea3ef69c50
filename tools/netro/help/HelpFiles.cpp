#include "help/HelpFiles.h"

#include <fstream>
#include <string>
#include <system_error>

#include "help/Completion.h"
#include "help/ManPage.h"
#include "terminal/Terminal.h"

namespace netro::tool {
namespace {

bool Write(const std::filesystem::path& path, const std::string& text) {
  std::error_code error;
  std::filesystem::create_directories(path.parent_path(), error);
  std::ofstream file(path, std::ios::binary);
  file << text;
  file.close();
  if (!file) ShowMessage("cannot write " + path.string());
  return file.good();
}

}  // namespace

bool WriteHelpFiles(const std::vector<CommandText>& texts, const std::filesystem::path& share) {
  bool good = Write(share / "bash-completion/completions/netro", BashCompletion(texts)) &&
              Write(share / "zsh/site-functions/_netro", ZshCompletion(texts)) &&
              Write(share / "fish/vendor_completions.d/netro.fish", FishCompletion(texts));
  for (std::size_t i = 0; good && i < texts.size(); ++i) {
    good = Write(share / "man/man1" / (texts[i].FullName("-") + ".1"), ManPage(texts, i));
  }
  return good;
}

}  // namespace netro::tool
