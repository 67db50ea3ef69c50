// Address lists in header fields (RFC 5322, section 3.4). Thread: any.

#include "support/AddressList.h"

#include <utility>

#include "support/EncodedWord.h"
#include "support/Text.h"
#include "support/Utf8.h"

namespace netro {
namespace {

/// The end of the quoted text, comment, address or address literal that begins at `at`; a backslash
/// hides the character behind it. What is not closed lasts to the end.
std::size_t EndOfUnit(std::string_view text, std::size_t at) {
  const char open = text[at];
  const char close = open == '(' ? ')' : open == '<' ? '>' : open == '[' ? ']' : '"';
  int depth = 0;
  bool quoted = false;
  for (; at < text.size(); ++at) {
    const char c = text[at];
    if (c == '\\') {
      ++at;
    } else if (open == '<' && c == '"') {
      quoted = !quoted;
    } else if (c == close && !quoted && (open != close || depth > 0)) {
      if (--depth == 0) return at + 1;
    } else if (c == open && (depth == 0 || open == '(')) {
      ++depth;
    }
  }
  return text.size();
}

/// Quoted text and comments as they are meant: without the quotes outside, and the backslashes.
std::string Unquoted(std::string_view text) {
  std::string plain;
  for (std::size_t at = 0; at < text.size(); ++at) {
    if (text[at] == '"') continue;
    if (text[at] == '\\' && at + 1 < text.size()) ++at;
    plain += text[at];
  }
  return plain;
}

/// Rewrites a list of addresses, clean text, so that only ASCII is left around the addresses.
class AddressWriter {
 public:
  AddressWriter(std::string_view text, std::size_t firstWord)
      : text_(text), longestWord_(firstWord) {}

  std::string Write() {
    while (true) {
      const std::size_t mark = FindMark();
      const char c = mark < text_.size() ? text_[mark] : '\0';
      AddPhrase(text_.substr(0, mark), c == '<' || c == ':');
      text_.remove_prefix(mark);
      if (text_.empty()) return std::move(out_);
      AddMarked(c);
    }
  }

 private:
  /// The next character with a meaning of its own, outside quotes and address literals.
  std::size_t FindMark() const {
    std::size_t at = 0;
    while (at < text_.size() && std::string_view(",;:<(").find(text_[at]) == text_.npos) {
      at = text_[at] == '"' || text_[at] == '[' ? EndOfUnit(text_, at) : at + 1;
    }
    return at;
  }

  void AddMarked(char c) {
    std::size_t size = 1;
    if (c == '<' || c == '(') {
      size = EndOfUnit(text_, 0);
      const std::string_view unit = text_.substr(0, size);
      AddPart(c == '<' || IsAscii(unit) ? std::string(unit) : EncodedComment(unit));
    } else if (c == ':' || (c == ';' && group_)) {
      out_ += c;
      group_ = c == ':';
      comma_ = false;
    } else {
      comma_ = !out_.empty();
    }
    text_.remove_prefix(size);
  }

  /// Words up to a mark: a name, or an address without brackets.
  void AddPhrase(std::string_view words, bool name) {
    const std::string phrase = Trim(words);
    const bool encode = !IsAscii(phrase) && (name || phrase.find('@') == phrase.npos);
    if (!phrase.empty()) AddPart(encode ? Encoded(phrase) : phrase);
  }

  std::string EncodedComment(std::string_view comment) {
    comment.remove_prefix(1);
    if (comment.ends_with(')')) comment.remove_suffix(1);
    return "(" + Encoded(comment) + ")";
  }

  std::string Encoded(std::string_view text) {
    // The parentheses of a comment take two of the line's characters.
    return EncodedWords(Unquoted(text), std::exchange(longestWord_, kLongestEncodedWord) - 2);
  }

  void AddPart(std::string_view part) {
    if (!out_.empty()) out_ += comma_ ? ", " : " ";
    comma_ = false;
    out_ += part;
  }

  std::string_view text_;  // what is left of it
  std::size_t longestWord_;
  std::string out_;
  bool comma_ = false;  // due before the next part
  bool group_ = false;  // its end is a semicolon
};

}  // namespace

std::string EncodeAddressList(std::string_view utf8, std::size_t firstWord) {
  return AddressWriter(utf8, firstWord).Write();
}

}  // namespace netro
