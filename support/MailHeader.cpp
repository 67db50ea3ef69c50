// Header fields of a message, made of UTF-8 text. A value is brought into its final characters
// first, encoded words and all, and then folded at its blanks.

#include "support/MailHeader.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>

#include "support/AddressList.h"
#include "support/EncodedWord.h"
#include "support/Text.h"
#include "support/Utf8.h"

namespace netro {
namespace {

constexpr std::size_t kFoldAt = 78;         // RFC 5322, section 2.1.1
constexpr std::size_t kFoldEncodedAt = 76;  // lines with encoded words: RFC 2047, section 2
constexpr std::size_t kLongestLine = 998;
constexpr std::size_t kLongestWord = 900;  // leaves a place for the name of the field
constexpr std::size_t kShortestFirstWord = 30;

/// UTF-8 without control characters and without blanks at its ends.
std::string Clean(std::string_view text) {
  std::string clean;
  clean.reserve(text.size());
  for (std::size_t at = 0; at < text.size();) {
    const std::size_t length = Utf8Length(text, at);
    const char c = text[at];
    if (length == 0) {
      AppendUtf8(clean, 0xFFFD);
    } else if (length == 1 && (static_cast<std::uint8_t>(c) < ' ' || c == '\x7F')) {
      clean += ' ';
    } else {
      clean += text.substr(at, length);
    }
    at += std::max<std::size_t>(length, 1);
  }
  clean.erase(clean.find_last_not_of(' ') + 1);
  clean.erase(0, clean.find_first_not_of(' '));
  return clean;
}

/// What a name leaves of the field's first line to its value; too little is nothing.
std::size_t RoomBeside(std::string_view name) {
  const std::size_t used = name.size() + std::string_view(": ").size();
  return used + kShortestFirstWord > kFoldEncodedAt ? 0 : kFoldEncodedAt - used;
}

/// The size of a first encoded word that does not leave the name alone on its line.
std::size_t FirstWordSize(std::string_view name) {
  const std::size_t room = RoomBeside(name);
  return room == 0 ? kLongestEncodedWord : std::min(room, kLongestEncodedWord);
}

/// Writes one field in lines.
class Folder {
 public:
  explicit Folder(std::string& out) : out_(out) {}

  void Append(std::string_view name, std::string_view value) {
    Put(name);
    Put(":");
    std::size_t end = std::min(value.find(' '), value.size());
    const std::string_view first = value.substr(0, end);
    // A long first word stays beside the name all the same: readers may take a line without a value
    // for an empty field.
    if (RoomBeside(name) == 0) FoldBefore(first);
    Word(" ", first);
    while (end < value.size()) {
      value.remove_prefix(end);
      const std::size_t word = std::min(value.find_first_not_of(' '), value.size());
      end = std::min(value.find(' ', word), value.size());
      FoldBefore(value.substr(0, end));
      Word(value.substr(0, word), value.substr(word, end - word));
    }
    out_ += "\r\n";
  }

 private:
  void FoldBefore(std::string_view word) {
    const bool encoded = encoded_ || HoldsEncodedWord(word);
    if (used_ + word.size() > (encoded ? kFoldEncodedAt : kFoldAt)) EndLine();
  }

  void Word(std::string_view blanks, std::string_view word) {
    Put(blanks.size() + word.size() > kLongestWord ? " " : blanks);
    // No blank to fold at: rather one that is too many than a line that no server takes.
    while (used_ + word.size() > kLongestLine) {
      const std::size_t room = kLongestLine - used_;
      Put(word.substr(0, room));
      word.remove_prefix(room);
      EndLine();
      Put(" ");
    }
    Put(word);
    encoded_ = encoded_ || HoldsEncodedWord(word);
  }

  void Put(std::string_view text) {
    out_ += text;
    used_ += text.size();
  }

  void EndLine() {
    out_ += "\r\n";
    used_ = 0;
    encoded_ = false;
  }

  std::string& out_;
  std::size_t used_ = 0;
  bool encoded_ = false;  // this line holds an encoded word
};

bool HasTooLongWord(std::string_view text) {
  for (std::size_t at = 0; at < text.size();) {
    const std::size_t word = std::min(text.find_first_not_of(' ', at), text.size());
    const std::size_t end = std::min(text.find(' ', word), text.size());
    if (end - at > kLongestWord) return true;
    at = end;
  }
  return false;
}

bool IsPlainParameter(std::string_view name, std::string_view value) {
  constexpr std::size_t kFrame = 6;  // TAB, "=", two quotes, and ";" of the next parameter
  return name.size() + value.size() + kFrame <= kLongestLine &&
         std::ranges::all_of(value,
                             [](char c) { return c >= ' ' && c <= '~' && c != '"' && c != '\\'; });
}

/// The character at `at` as a parameter's value may hold it (RFC 2231, section 7).
std::string PercentEncoded(std::string_view character) {
  const char c = character.front();
  if (IsAlphanumeric(c) || c == '.' || c == '_' || c == '-') return std::string(character);
  std::string encoded;
  for (const char byte : character) AppendHex(encoded += '%', byte);
  return encoded;
}

}  // namespace

void AppendTextField(std::string& out, std::string_view name, std::string_view utf8) {
  const std::string value = Clean(utf8);
  const bool encode = !IsAscii(value) || HasTooLongWord(value);
  Folder(out).Append(name, encode ? EncodedWords(value, FirstWordSize(name)) : value);
}

void AppendAddressField(std::string& out, std::string_view name, std::string_view utf8) {
  const std::string value = Clean(utf8);
  const bool asItIs =
      IsAscii(value) && value.find(';') == value.npos && name.size() + 2 + value.size() <= kFoldAt;
  Folder(out).Append(name, asItIs ? value : EncodeAddressList(value, FirstWordSize(name)));
}

void AppendParameter(std::string& out, std::string_view name, std::string_view utf8) {
  const std::string value = Clean(utf8);
  if (IsPlainParameter(name, value)) {
    out.append(";\r\n\t").append(name).append("=\"").append(value).append("\"");
    return;
  }
  std::size_t used = kFoldAt;  // of the line
  int section = 0;
  for (std::size_t at = 0, length = 0; at < value.size(); at += length) {
    length = Utf8Length(value, at);
    const std::string next = PercentEncoded(std::string_view(value).substr(at, length));
    if (used + next.size() >= kFoldAt) {
      const std::string begin = std::string("\t").append(name) + "*" + std::to_string(section) +
                                "*=" + (section == 0 ? "utf-8''" : "");
      out.append(";\r\n").append(begin);
      used = begin.size();
      ++section;
    }
    out += next;
    used += next.size();
  }
}

}  // namespace netro
