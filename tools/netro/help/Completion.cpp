#include "help/Completion.h"

#include <sstream>

namespace netro::tool {
namespace {

/// In single quotes, for any shell; fish has backslashes inside of them too.
std::string Quoted(const std::string& text, bool fish = false) {
  std::string out = "'";
  for (const char c : text) {
    if (c == '\'') {
      out += fish ? "\\'" : "'\\''";
    } else {
      out += c == '\\' && fish ? "\\\\" : std::string(1, c);
    }
  }
  return out + "'";
}

std::string OnOneLine(std::string text) {
  for (char& c : text) c = c == '\n' ? ' ' : c;
  return text;
}

std::string Names(const std::vector<CommandText>& texts) {
  std::string names = "help";
  for (const CommandText& text : texts) names += text.name.empty() ? "" : " " + text.name;
  return names;
}

/// The names of the options, those with a value only if wanted so.
std::string Options(const CommandText& text, bool withValue) {
  std::string names;
  for (const OptionText& option : text.options) {
    if (option.isArgument || (withValue && option.value.empty())) continue;
    for (const std::string& name : option.names) names += (names.empty() ? "" : " ") + name;
  }
  return names;
}

std::string Pattern(std::string names) {
  for (std::size_t at = 0; (at = names.find(' ', at)) != names.npos; ++at) names[at] = '|';
  return names.empty() ? "''" : names;
}

/// A name and what it is for, as _describe takes them.
std::string Described(std::string name, const std::string& use) {
  for (std::size_t at = 0; (at = name.find(':', at)) != name.npos; at += 2) name.insert(at, "\\");
  return Quoted(name + ":" + use);
}

void WriteFishOption(std::ostream& script, const CommandText& text, const OptionText& option) {
  script << "complete -c netro -n "
         << (text.name.empty() ? "__fish_use_subcommand"
                               : Quoted("__fish_seen_subcommand_from " + text.name, true));
  for (const std::string& name : option.names) {
    script << (name.starts_with("--") ? " -l " + name.substr(2) : " -s " + name.substr(1));
  }
  script << (option.value.empty() ? "" : " -r") << " -d " << Quoted(OnOneLine(option.use), true)
         << "\n";
}

}  // namespace

// After an option that takes a value, and for words that are no options, files are offered.
std::string BashCompletion(const std::vector<CommandText>& texts) {
  std::ostringstream script;
  script << "_netro() {\n"
            "  local word=${COMP_WORDS[COMP_CWORD]} before=${COMP_WORDS[COMP_CWORD-1]} words=\n"
            "  COMPREPLY=()\n"
            "  if ((COMP_CWORD == 1)) && [[ $word != -* ]]; then\n"
            "    words="
         << Quoted(Names(texts))
         << "\n  elif ((COMP_CWORD == 2)) && [[ $before == help ]]; then\n    words="
         << Quoted(Names(texts)) << "\n  else\n    case ${COMP_WORDS[1]} in\n";
  for (const CommandText& text : texts) {
    script << "      " << (text.name.empty() ? "-*" : text.name) << ")\n"
           << "        case $before in " << Pattern(Options(text, true)) << ") return ;; esac\n"
           << "        words=" << Quoted(Options(text, false)) << " ;;\n";
  }
  script << "    esac\n    [[ $word == -* ]] || return\n  fi\n"
            "  mapfile -t COMPREPLY < <(compgen -W \"$words\" -- \"$word\")\n}\n"
            "complete -o default -F _netro netro\n";
  return script.str();
}

std::string ZshCompletion(const std::vector<CommandText>& texts) {
  std::ostringstream script;
  script << "#compdef netro\n_netro() {\n  local -a words_of\n"
            "  if ((CURRENT == 2)) && [[ $words[2] != -* ]] ||\n"
            "     { ((CURRENT == 3)) && [[ $words[2] == help ]] }; then\n    words_of=(\n"
         << "      " << Described("help", "Show the options of a command") << "\n";
  for (const CommandText& text : texts) {
    if (!text.name.empty()) script << "      " << Described(text.name, text.summary) << "\n";
  }
  script << "    )\n    _describe command words_of\n    return\n  fi\n  case $words[2] in\n";
  for (const CommandText& text : texts) {
    script << "    " << (text.name.empty() ? "-*" : text.name) << ")\n"
           << "      case $words[CURRENT-1] in " << Pattern(Options(text, true))
           << ") _default; return ;; esac\n      words_of=(\n";
    for (const OptionText& option : text.options) {
      if (option.isArgument) continue;
      for (const std::string& name : option.names) {
        script << "        " << Described(name, OnOneLine(option.use)) << "\n";
      }
    }
    script << "      ) ;;\n";
  }
  script << "  esac\n  if [[ $words[CURRENT] == -* ]]; then _describe -o option words_of\n"
            "  else _default; fi\n}\n"
            "if [[ $funcstack[1] == _netro ]]; then _netro \"$@\"; else compdef _netro netro; fi\n";
  return script.str();
}

std::string FishCompletion(const std::vector<CommandText>& texts) {
  std::ostringstream script;
  script << "complete -c netro -f -n __fish_use_subcommand -a help -d "
            "'Show the options of a command'\n"
         << "complete -c netro -f -n '__fish_seen_subcommand_from help' -a "
         << Quoted(Names(texts), true) << "\n";
  for (const CommandText& text : texts) {
    if (!text.name.empty()) {
      script << "complete -c netro -f -n __fish_use_subcommand -a " << text.name << " -d "
             << Quoted(text.summary, true) << "\n";
    }
    for (const OptionText& option : text.options) {
      if (!option.isArgument) WriteFishOption(script, text, option);
    }
  }
  return script.str();
}

}  // namespace netro::tool
