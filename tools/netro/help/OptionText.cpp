#include "help/OptionText.h"

#include <CLI/CLI.hpp>
#include <algorithm>

namespace netro::tool {
namespace {

OptionText Read(const CLI::Option& option) {
  OptionText text;
  text.isArgument = option.get_positional();
  if (text.isArgument) {
    text.names = {option.get_name(true)};
  } else {
    for (const std::string& name : option.get_snames()) text.names.push_back("-" + name);
    for (const std::string& name : option.get_lnames()) text.names.push_back("--" + name);
    if (option.get_type_size() != 0) text.value = ValueName(option);
  }
  text.use = option.get_description();
  text.repeats = option.get_expected_max() > 1;
  text.group = option.get_group();
  return text;
}

CommandText Read(const CLI::App& app, std::string name) {
  CommandText text{std::move(name), app.get_description(), app.get_footer(), {}};
  for (const CLI::Option* option : app.get_options()) {
    if (!option->get_group().empty()) text.options.push_back(Read(*option));
  }
  return text;
}

}  // namespace

std::string ValueName(const CLI::Option& option) {
  const std::string name = option.get_type_name();
  return name.substr(0, std::min(name.find(":INT in ["), name.find(":UINT in [")));
}

std::vector<CommandText> ReadCommandTexts(const CLI::App& app) {
  std::vector<CommandText> texts{Read(app, "")};
  for (const CLI::App* command : app.get_subcommands([](const CLI::App*) { return true; })) {
    texts.push_back(Read(*command, command->get_name()));
  }
  return texts;
}

}  // namespace netro::tool
