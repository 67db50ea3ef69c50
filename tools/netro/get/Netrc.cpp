// The file .netrc.

#include "get/Netrc.h"

#include <strings.h>

#include <algorithm>

#include "terminal/Command.h"
#include "terminal/OptionValues.h"
#include "terminal/System.h"

namespace netro::tool {
namespace {

class Words {
 public:
  explicit Words(std::string_view text) : rest_(text) {}

  /// The next word; empty at the end.
  std::string Next() {
    Skip();
    const bool quoted = rest_.starts_with('"');
    if (quoted) rest_.remove_prefix(1);
    std::string word;
    while (!rest_.empty() && (quoted ? rest_.front() != '"' : !IsBlank(rest_.front()))) {
      if (quoted && rest_.front() == '\\' && rest_.size() > 1) rest_.remove_prefix(1);
      word += rest_.front();
      rest_.remove_prefix(1);
    }
    if (quoted && !rest_.empty()) rest_.remove_prefix(1);
    return word;
  }

  void SkipMacro() {
    const std::size_t end = rest_.find("\n\n");
    rest_.remove_prefix(end == rest_.npos ? rest_.size() : end + 2);
  }

 private:
  static bool IsBlank(char c) { return c == ' ' || c == '\t' || c == '\r' || c == '\n'; }

  void Skip() {
    while (!rest_.empty()) {
      if (rest_.front() == '#') {
        rest_.remove_prefix(std::min(rest_.find('\n'), rest_.size()));
      } else if (IsBlank(rest_.front())) {
        rest_.remove_prefix(1);
      } else {
        return;
      }
    }
  }

  std::string_view rest_;
};

bool SameHost(const std::string& a, std::string_view b) {
  return a.size() == b.size() && ::strncasecmp(a.c_str(), b.data(), a.size()) == 0;
}

}  // namespace

std::optional<Login> FindLogin(std::string_view text, std::string_view host) {
  Words words(text);
  std::optional<Login> found;
  for (std::string word = words.Next(); !word.empty(); word = words.Next()) {
    if (word == "machine" || word == "default") {
      if (found) return found;
      if (word == "default" || SameHost(words.Next(), host)) found.emplace();
    } else if (word == "login" || word == "password" || word == "account") {
      const std::string value = words.Next();
      if (found && word == "login") found->user = value;
      if (found && word == "password") found->password = value;
    } else if (word == "macdef") {
      words.SkipMacro();
    }
  }
  return found;
}

std::string ReadNetrc(const std::string& file) {
  const std::string name = !file.empty() ? file : HomeFolder() + "/.netrc";
  if (MayOthersRead(name)) {
    throw UsageError("--netrc: others may read " + name + "; take that away with chmod 600");
  }
  return ReadInput("--netrc", name);
}

}  // namespace netro::tool
