// Encoded words: characters beyond ASCII in header fields (RFC 2047). Thread: any.

#include "support/EncodedWord.h"

#include <algorithm>

#include "support/Base64.h"
#include "support/Text.h"
#include "support/Utf8.h"

namespace netro {
namespace {

constexpr std::string_view kWordBegin = "=?utf-8?";
constexpr std::string_view kWordEnd = "?=";
constexpr std::size_t kWordFrame = 12;  // with "B?" or "Q?"

/// The encoding "Q" with the few characters that may stand for themselves in a phrase (section 5).
void AppendQ(std::string& out, std::string_view text) {
  for (const char c : text) {
    if (c == ' ') {
      out += '_';
    } else if (IsAlphanumeric(c) || std::string_view("!*+-/").find(c) != std::string_view::npos) {
      out += c;
    } else {
      AppendHex(out += '=', c);
    }
  }
}

std::size_t SizeInQ(std::string_view text) {
  std::string q;
  AppendQ(q, text);
  return q.size();
}

/// How many bytes of `text` one word of `longest` characters takes, in whole characters.
std::size_t TakeForWord(std::string_view text, std::size_t longest, bool base64) {
  const std::size_t room = base64 ? (longest - kWordFrame) / 4 * 3 : longest - kWordFrame;
  std::size_t used = 0;
  std::size_t at = 0;
  while (at < text.size()) {
    const std::size_t length = std::max<std::size_t>(Utf8Length(text, at), 1);
    used += base64 ? length : SizeInQ(text.substr(at, length));
    if (used > room) break;
    at += length;
  }
  return at;
}

}  // namespace

std::string EncodedWords(std::string_view utf8, std::size_t first) {
  const bool base64 = (utf8.size() + 2) / 3 * 4 < SizeInQ(utf8);
  std::string words;
  while (!utf8.empty()) {
    const std::size_t size = TakeForWord(utf8, first, base64);
    if (!words.empty()) words += ' ';
    words.append(kWordBegin).append(base64 ? "B?" : "Q?");
    if (base64) {
      words += Base64Encode(utf8.substr(0, size));
    } else {
      AppendQ(words, utf8.substr(0, size));
    }
    words += kWordEnd;
    utf8.remove_prefix(size);
    first = kLongestEncodedWord;
  }
  return words;
}

bool HoldsEncodedWord(std::string_view text) { return text.find(kWordBegin) != text.npos; }

}  // namespace netro
