// What the option tables say, for the texts that are made of them: man pages and completions.
// Thread: any.
#pragma once

#include <string>
#include <vector>

namespace CLI {
class App;
class Option;
}  // namespace CLI

namespace netro::tool {

struct OptionText {
  std::vector<std::string> names;  // "-s", "--server"; of an argument its name
  std::string value;               // "HOST[:PORT]"; empty: it takes none
  std::string use;                 // lines
  std::string group;
  bool isArgument = false;
  bool repeats = false;
};

/// "SIZE"; without what the parser's own checks add to it.
std::string ValueName(const CLI::Option& option);

struct CommandText {
  std::string name;  // "dns"; empty: netro itself
  std::string summary;
  std::string footer;  // lines, some of them examples
  std::vector<OptionText> options;

  std::string FullName(const std::string& separator) const {
    return name.empty() ? "netro" : "netro" + separator + name;
  }
};

/// netro itself first, then its commands in their order.
std::vector<CommandText> ReadCommandTexts(const CLI::App& app);

}  // namespace netro::tool
