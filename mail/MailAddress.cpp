// Taking header text apart into addresses. Thread: any.
#include "mail/MailAddress.h"

#include <cstddef>

namespace netro {
namespace {

constexpr std::string_view kBlanks(" \t\r\n");

std::string_view TrimBlanks(std::string_view text) {
  const std::size_t begin = text.find_first_not_of(kBlanks);
  if (begin == text.npos) return {};
  return text.substr(begin, text.find_last_not_of(kBlanks) + 1 - begin);
}

// Walks a text and tells for each character whether it belongs to a quoted string or a comment. A
// quote that nothing closes is an ordinary character, as is a ")" that closes nothing.
class Walk {
 public:
  explicit Walk(std::string_view text) : text_(text) {}

  bool Next() {
    if (++at_ == text_.size()) return false;
    const char c = Character();
    comment_ = depth_ > 0 || (c == '(' && !quotes_);
    quoted_ = !comment_ && (quotes_ || (c == '"' && IsClosed()));
    if (escaped_ || ((comment_ || quoted_) && c == '\\')) {
      escaped_ = !escaped_;
    } else if (comment_) {
      if (c == '(') ++depth_;
      if (c == ')') --depth_;
    } else if (c == '"') {
      quotes_ = quoted_ && !quotes_;
    }
    return true;
  }

  std::size_t At() const { return at_; }
  char Character() const { return text_[at_]; }
  bool Comment() const { return comment_; }
  bool Quoted() const { return quoted_; }
  bool Plain() const { return !comment_ && !quoted_; }
  /// At the end: a comment is still open.
  bool Open() const { return depth_ > 0; }

 private:
  // Looks ahead once for each quoted string, and never again after one that is not closed.
  bool IsClosed() {
    for (std::size_t i = at_ + 1; closable_ && i < text_.size(); ++i) {
      if (text_[i] == '"') return true;
      if (text_[i] == '\\') ++i;
    }
    return closable_ = false;
  }

  std::string_view text_;
  std::size_t at_ = std::string_view::npos;  // before the first
  std::size_t depth_ = 0;
  bool quotes_ = false;  // inside quotes
  bool escaped_ = false;
  bool closable_ = true;
  bool comment_ = false;
  bool quoted_ = false;
};

// A text without its comments, and where its marks outside quotes stand.
struct Marks {
  static constexpr std::size_t kNone = std::string::npos;

  explicit Marks(std::string_view whole) {
    Walk walk(whole);
    while (walk.Next()) {
      if (walk.Comment()) continue;
      if (walk.Plain()) Note(walk.Character());
      text += walk.Character();
    }
    commentOpen = walk.Open();
  }

  void Note(char c) {
    const std::size_t here = text.size();
    if (c == '<') ++opens, open = here;
    if (c == '>') ++closes, close = here;
    if (c == '@') at = here;
    if (c == ',' || c == ';') separator = here;
  }

  bool Bracketed() const { return opens == 1; }
  bool IsOneAddress() const {
    if (commentOpen || opens > 1 || opens != closes) return false;
    if (!Bracketed()) return separator == kNone;
    const bool nothingBehind = text.find_first_not_of(kBlanks, close + 1) == kNone;
    return open < close && nothingBehind && (separator == kNone || separator < open);
  }

  std::string text;
  std::size_t opens = 0, closes = 0;
  std::size_t open = kNone, close = kNone, at = kNone, separator = kNone;
  bool commentOpen = false;
};

std::string WithoutQuotes(std::string_view text) {
  std::string plain;
  Walk walk(text);
  bool escaped = false;
  while (walk.Next()) {
    const char c = walk.Character();
    const bool mark = walk.Quoted() && !escaped && (c == '"' || c == '\\');
    escaped = mark && c == '\\';
    if (!mark) plain += c;
  }
  return plain;
}

}  // namespace

MailAddress ExtractAddress(std::string_view text) {
  const Marks marks(text);
  if (!marks.IsOneAddress()) return {};
  const std::string_view whole = marks.text;
  const std::size_t begin = marks.Bracketed() ? marks.open + 1 : 0;
  const std::size_t end = marks.Bracketed() ? marks.close : whole.size();
  const std::string_view address = TrimBlanks(whole.substr(begin, end - begin));

  MailAddress found{std::string(address), std::string(address), {}, {}};
  if (marks.at != Marks::kNone && marks.at >= begin) {
    const auto at = marks.at - static_cast<std::size_t>(address.data() - whole.data());
    found.local = address.substr(0, at);
    found.host = address.substr(at + 1);
  }
  if (marks.Bracketed()) found.displayName = WithoutQuotes(TrimBlanks(whole.substr(0, marks.open)));
  return found;
}

std::vector<std::string> SplitAddressList(std::string_view text) {
  std::vector<std::string> elements;
  std::size_t begin = 0;
  bool angle = false;    // inside "<"
  bool literal = false;  // inside "[" of an address literal
  bool host = false;     // behind an "@"
  const auto take = [&](std::size_t end) {
    const std::string_view element = TrimBlanks(text.substr(begin, end - begin));
    if (!element.empty()) elements.emplace_back(element);
    begin = end + 1;
    host = false;
  };
  Walk walk(text);
  while (walk.Next()) {
    if (!walk.Plain()) continue;
    const char c = walk.Character();
    if (c == '<' || c == '>') angle = c == '<';
    if ((c == '[' && host) || c == ']') literal = c == '[';
    if (c == '@') host = true;
    if (angle || literal) continue;
    if (c == ':' && !host) begin = walk.At() + 1;
    if (c == ',' || c == ';') take(walk.At());
  }
  if (begin < text.size()) take(text.size());
  return elements;
}

}  // namespace netro
