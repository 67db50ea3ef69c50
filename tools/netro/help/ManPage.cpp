#include "help/ManPage.h"

#include <algorithm>
#include <sstream>

namespace netro::tool {
namespace {

/// Text that man takes as it is.
std::string Plain(const std::string& text) {
  std::string out;
  bool begins = true;
  for (const char c : text) {
    if (begins && (c == '.' || c == '\'')) out += "\\&";
    if (c == '\\') {
      out += "\\e";
    } else if (c == '-') {
      out += "\\-";
    } else {
      out += c;
    }
    begins = c == '\n';
  }
  return out;
}

std::string Bold(const std::string& text) { return "\\fB" + Plain(text) + "\\fR"; }
std::string Italic(const std::string& text) { return "\\fI" + Plain(text) + "\\fR"; }

std::string Upper(std::string text) {
  for (char& c : text) c = c >= 'a' && c <= 'z' ? static_cast<char>(c - 'a' + 'A') : c;
  return text;
}

std::string Tag(const OptionText& option) {
  if (option.isArgument) return Italic(option.names.front());
  std::string tag;
  for (const std::string& name : option.names) tag += (tag.empty() ? "" : ", ") + Bold(name);
  return option.value.empty() ? tag : tag + " " + Italic(option.value);
}

std::string Synopsis(const CommandText& text) {
  std::string line = Bold(text.FullName(" ")) + " [" + Italic("OPTIONS") + "]";
  for (const OptionText& option : text.options) {
    if (option.isArgument) {
      line += " " + Italic(option.names.front()) + (option.repeats ? " ..." : "");
    }
  }
  return text.name.empty() ? line + " [" + Italic("COMMAND") + "]" : line;
}

/// The groups in the order in which they first appear, arguments before them.
std::vector<std::string> Groups(const CommandText& text) {
  std::vector<std::string> groups;
  for (const OptionText& option : text.options) {
    if (!option.isArgument && std::ranges::find(groups, option.group) == groups.end()) {
      groups.push_back(option.group);
    }
  }
  return groups;
}

void WriteOption(std::ostream& page, const OptionText& option) {
  page << ".TP\n" << Tag(option) << "\n" << Plain(option.use) << "\n";
}

void WriteOptions(std::ostream& page, const CommandText& text) {
  page << ".SH OPTIONS\n";
  for (const OptionText& option : text.options) {
    if (option.isArgument) WriteOption(page, option);
  }
  for (const std::string& group : Groups(text)) {
    page << ".SS \"" << Plain(group) << "\"\n";
    for (const OptionText& option : text.options) {
      if (!option.isArgument && option.group == group) WriteOption(page, option);
    }
  }
}

void WriteCommands(std::ostream& page, const std::vector<CommandText>& texts) {
  page << ".SH COMMANDS\n";
  for (const CommandText& text : texts) {
    if (text.name.empty()) continue;
    page << ".TP\n" << Bold(text.name) << "\n" << Plain(text.summary) << "\n";
  }
}

void WriteEnd(std::ostream& page, const std::vector<CommandText>& texts, std::size_t index) {
  page << ".SH \"EXIT STATUS\"\n"
          ".TP\n0\nAll that was asked for succeeded.\n"
          ".TP\n1\nSomething failed; standard error says what.\n"
          ".TP\n2\nThe arguments cannot be so; nothing was done.\n"
          ".PP\nWhat Ctrl\\-C ends dies by that signal, after it has told what there was.\n"
          ".SH \"SEE ALSO\"\n";
  std::string others;
  for (std::size_t i = 0; i < texts.size(); ++i) {
    if (i == index) continue;
    others += (others.empty() ? "" : ",\n") + (".BR " + Plain(texts[i].FullName("-"))) + " (1)";
  }
  page << others << "\n";
}

}  // namespace

std::string ManPage(const std::vector<CommandText>& texts, std::size_t index) {
  const CommandText& text = texts[index];
  std::ostringstream page;
  page << ".TH " << Plain(Upper(text.FullName("-"))) << " 1 \"\" \"netro " NETRO_VERSION "\"\n"
       << ".SH NAME\n"
       << Plain(text.FullName("-")) << " \\- " << Plain(text.summary) << "\n.SH SYNOPSIS\n"
       << Synopsis(text) << "\n";
  if (text.name.empty()) WriteCommands(page, texts);
  WriteOptions(page, text);
  page << ".SH NOTES\n.nf\n"
       << Plain(text.footer.substr(text.footer.find_first_not_of('\n'))) << "\n.fi\n";
  WriteEnd(page, texts, index);
  return page.str();
}

}  // namespace netro::tool
