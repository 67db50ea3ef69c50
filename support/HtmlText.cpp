// The plain text of an HTML page. One pass over tags and text; each search for an end begins where
// the one before it ended, or ends the pass, so that no input takes more than linear time.

#include "support/HtmlText.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <iterator>
#include <utility>

#include "support/HtmlEntities.h"
#include "support/Text.h"
#include "support/Utf8.h"

namespace netro {
namespace {

constexpr char32_t kNoBreakSpace = 0xA0;

bool IsWhitespace(char c) { return static_cast<std::uint8_t>(c) <= ' '; }

bool IsLetter(char c) { return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z'); }

bool EndsName(char c) { return IsWhitespace(c) || c == '/' || c == '>'; }

/// What an element does to the text around it.
enum class Layout { Inline, Cell, LineBreak, Line, Paragraph };

struct Element {
  std::string_view name;
  Layout layout;
};

constexpr Element kElements[] = {
    {"br", Layout::LineBreak},    {"td", Layout::Cell},       {"th", Layout::Cell},
    {"p", Layout::Paragraph},     {"h1", Layout::Paragraph},  {"h2", Layout::Paragraph},
    {"h3", Layout::Paragraph},    {"h4", Layout::Paragraph},  {"h5", Layout::Paragraph},
    {"h6", Layout::Paragraph},    {"pre", Layout::Paragraph}, {"blockquote", Layout::Paragraph},
    {"table", Layout::Paragraph}, {"ul", Layout::Paragraph},  {"ol", Layout::Paragraph},
    {"dl", Layout::Paragraph},    {"div", Layout::Line},      {"li", Layout::Line},
    {"tr", Layout::Line},         {"dt", Layout::Line},       {"dd", Layout::Line},
    {"hr", Layout::Line},         {"address", Layout::Line},  {"article", Layout::Line},
    {"aside", Layout::Line},      {"center", Layout::Line},   {"caption", Layout::Line},
    {"fieldset", Layout::Line},   {"footer", Layout::Line},   {"form", Layout::Line},
    {"header", Layout::Line},     {"main", Layout::Line},     {"nav", Layout::Line},
    {"option", Layout::Line},     {"section", Layout::Line},
};

Layout LayoutOf(std::string_view name) {
  const auto* const found = std::ranges::find(kElements, name, &Element::name);
  return found == std::end(kElements) ? Layout::Inline : found->layout;
}

/// Collects the text: blanks and line ends wait until something follows them.
class PlainText {
 public:
  void Clear() { *this = PlainText(); }

  void Blank() { blank_ = true; }
  void EndLine(std::size_t count) { lineEnds_ += count; }
  /// At least so many line ends before what follows.
  void StartLine(std::size_t lineEnds) { lineEnds_ = std::max(lineEnds_, lineEnds); }

  void Add(std::string_view text) {
    if (text_.empty()) {
      lineEnds_ = 0;
    } else if (lineEnds_ == 0 && blank_) {
      text_ += ' ';
    }
    for (; lineEnds_ > 0; --lineEnds_) text_ += "\r\n";
    blank_ = false;
    text_ += text;
  }

  std::string Take() { return std::move(text_); }

 private:
  std::string text_;
  std::size_t lineEnds_ = 0;
  bool blank_ = false;
};

class HtmlReader {
 public:
  explicit HtmlReader(std::string_view html) : html_(html) {}

  std::string Read() {
    while (at_ < html_.size()) {
      if (!ReadMarkup()) ReadText();
    }
    return text_.Take();
  }

 private:
  /// False when the text here is none.
  bool ReadMarkup() {
    if (html_[at_] != '<' || at_ + 1 == html_.size()) return false;
    const char next = html_[at_ + 1];
    if (html_.substr(at_).starts_with("<!--")) {
      SkipBehind("-->", at_ + 2);
    } else if (next == '!' || next == '?') {
      SkipBehind(">", at_ + 2);
    } else if (next == '/' && at_ + 2 < html_.size() && IsLetter(html_[at_ + 2])) {
      ReadEndTag();
    } else if (IsLetter(next)) {
      ReadStartTag();
    } else {
      return false;
    }
    return true;
  }

  void SkipBehind(std::string_view end, std::size_t from) {
    const std::size_t found = html_.find(end, from);
    at_ = found == html_.npos ? html_.size() : found + end.size();
  }

  void ReadStartTag() {
    const std::string name = TakeName(at_ + 1);
    SkipAttributes();
    if (name == "body") {
      if (!std::exchange(inBody_, true)) text_.Clear();
    } else if (name == "script" || name == "style" || name == "title") {
      SkipToEndTag(name);
    } else {
      if (name == "pre") BeginPreformatted();
      Arrange(LayoutOf(name));
    }
  }

  void ReadEndTag() {
    const std::string name = TakeName(at_ + 2);
    SkipAttributes();
    if (name == "body" && inBody_) {
      at_ = html_.size();
    } else {
      if (name == "pre") preformatted_ = false;
      if (name != "br") Arrange(LayoutOf(name));
    }
  }

  /// A line end right behind the tag is no part of the text.
  void BeginPreformatted() {
    preformatted_ = true;
    const std::string_view rest = html_.substr(at_);
    at_ += rest.starts_with('\n') ? 1 : rest.starts_with("\r\n") ? 2 : 0;
  }

  /// Takes the name of the tag that begins at `from`, in lower case.
  std::string TakeName(std::size_t from) {
    at_ = from;
    while (at_ < html_.size() && !EndsName(html_[at_])) ++at_;
    return ToLower(html_.substr(from, at_ - from));
  }

  /// Skips what is left of a tag. A ">" in a quoted value does not end it; a quote that is never
  /// closed is none. That one can be met twice at most, once for each kind.
  void SkipAttributes() {
    bool value = false;  // behind "=": a quote opens a value here
    for (; at_ < html_.size() && html_[at_] != '>'; ++at_) {
      const char c = html_[at_];
      if (value && (c == '"' || c == '\'')) {
        const std::size_t close = html_.find(c, at_ + 1);
        if (close != html_.npos) at_ = close;
      }
      value = c == '=' || (value && IsWhitespace(c));
    }
    at_ = std::min(at_ + 1, html_.size());
  }

  /// Skips an element whose text is no markup, up to its end tag.
  void SkipToEndTag(std::string_view name) {
    for (at_ = html_.find("</", at_); at_ != html_.npos; at_ = html_.find("</", at_ + 2)) {
      const std::string_view rest = html_.substr(at_ + 2);
      if (StartsWithIgnoreCase(rest, name) &&
          (rest.size() == name.size() || EndsName(rest[name.size()]))) {
        return;
      }
    }
    at_ = html_.size();
  }

  void Arrange(Layout layout) {
    switch (layout) {
      case Layout::Inline:
        break;
      case Layout::Cell:
        text_.Blank();
        break;
      case Layout::LineBreak:
        text_.EndLine(1);
        break;
      case Layout::Line:
        text_.StartLine(1);
        break;
      case Layout::Paragraph:
        text_.StartLine(2);
        break;
    }
  }

  void ReadText() {
    const char c = html_[at_];
    char32_t character = 0;
    if (const std::size_t size = c == '&' ? ReadEntity(html_, at_, character) : 0; size > 0) {
      at_ += size;
      AddCharacter(character);
    } else if (IsWhitespace(c)) {
      ++at_;
      AddWhitespace(c);
    } else {
      AddWord();
    }
  }

  void AddCharacter(char32_t character) {
    if (character <= ' ' || character == kNoBreakSpace) {
      text_.Blank();
      return;
    }
    std::string utf8;
    AppendUtf8(utf8, character);
    text_.Add(utf8);
  }

  void AddWhitespace(char c) {
    if (!preformatted_) {
      text_.Blank();
    } else if (c == '\n') {
      text_.EndLine(1);
    } else if (c != '\r') {
      text_.Add(" ");
    }
  }

  /// At least the character here, whatever it is, and all up to what needs a look of its own.
  void AddWord() {
    const std::size_t begin = at_++;
    while (at_ < html_.size() && html_[at_] != '<' && html_[at_] != '&' &&
           !IsWhitespace(html_[at_])) {
      ++at_;
    }
    text_.Add(html_.substr(begin, at_ - begin));
  }

  std::string_view html_;
  std::size_t at_ = 0;
  bool inBody_ = false;
  bool preformatted_ = false;
  PlainText text_;
};

}  // namespace

std::string HtmlToText(std::string_view html) { return HtmlReader(html).Read(); }

}  // namespace netro
