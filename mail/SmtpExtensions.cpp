#include "mail/SmtpExtensions.h"

#include <algorithm>
#include <charconv>

#include "support/Text.h"

namespace netro {
namespace {

constexpr std::size_t kMostLines = 100;
constexpr std::size_t kLongestLine = 1000;
constexpr std::size_t kCodeSize = 4;  // with the blank or hyphen behind it

bool IsDigit(char c) { return c >= '0' && c <= '9'; }

std::vector<std::string> Words(std::string_view line) {
  std::vector<std::string> words = Split(line, ' ');
  std::erase(words, std::string());
  return words;
}

void TakeMechanisms(SmtpExtensions& found, const std::vector<std::string>& words,
                    std::size_t from) {
  found.auth = true;
  for (std::size_t i = from; i < words.size(); ++i) {
    if (std::ranges::find(found.mechanisms, words[i]) == found.mechanisms.end())
      found.mechanisms.push_back(words[i]);
  }
}

void TakeSize(SmtpExtensions& found, const std::vector<std::string>& words) {
  found.size = true;
  if (words.size() < 2) return;
  const std::string& text = words[1];
  std::uint64_t number = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
  if (error == std::errc() && end == text.data() + text.size()) found.largest = number;
}

void TakeLine(SmtpExtensions& found, std::string_view line) {
  constexpr std::string_view kOldAuth = "AUTH=";  // as servers wrote it before the standard
  std::vector<std::string> words = Words(line);
  if (words.empty()) return;
  const struct {
    std::string_view keyword;
    bool& flag;
  } kFlags[] = {{"PIPELINING", found.pipelining}, {"8BITMIME", found.eightBitMime},
                {"SMTPUTF8", found.smtpUtf8},     {"STARTTLS", found.startTls},
                {"CHUNKING", found.chunking},     {"DSN", found.dsn}};
  for (const auto& [keyword, flag] : kFlags) {
    if (EqualsIgnoreCase(words[0], keyword)) flag = true;
  }
  if (EqualsIgnoreCase(words[0], "SIZE")) TakeSize(found, words);
  if (EqualsIgnoreCase(words[0], "AUTH")) TakeMechanisms(found, words, 1);
  if (StartsWithIgnoreCase(words[0], kOldAuth)) {
    words[0].erase(0, kOldAuth.size());
    TakeMechanisms(found, words, words[0].empty() ? 1 : 0);
  }
  found.lines.emplace_back(line);
}

// One to three digits, which are taken off the text; empty for anything else.
std::string_view TakeNumber(std::string_view& text) {
  const std::size_t size = std::min(
      static_cast<std::size_t>(std::ranges::find_if_not(text, IsDigit) - text.begin()), text.size());
  const std::string_view number = text.substr(0, size);
  text.remove_prefix(size);
  return size <= 3 ? number : std::string_view();
}

}  // namespace

SmtpExtensions ParseExtensions(std::string_view reply) {
  SmtpExtensions found;
  bool first = true;  // the line with the server's name
  while (!reply.empty() && found.lines.size() < kMostLines) {
    const std::size_t end = reply.find("\r\n");
    const std::string_view line = reply.substr(0, end);
    reply.remove_prefix(end == reply.npos ? reply.size() : end + 2);
    const bool fits = line.size() > kCodeSize && line.size() <= kLongestLine &&
                      std::ranges::all_of(line.substr(0, 3), IsDigit);
    if (!first && fits && !HasControlCharacter(line)) TakeLine(found, line.substr(kCodeSize));
    first = false;
  }
  return found;
}

std::string EnhancedStatus(std::string_view reply) {
  while (reply.ends_with('\n') || reply.ends_with('\r')) reply.remove_suffix(1);
  const std::size_t lineEnd = reply.rfind("\r\n");
  if (lineEnd != reply.npos) reply.remove_prefix(lineEnd + 2);
  if (reply.size() <= kCodeSize) return {};
  const std::string_view text = reply.substr(kCodeSize);
  std::string_view rest = text;
  const std::string_view category = TakeNumber(rest);
  if (category.size() != 1 || category[0] != reply[0]) return {};
  for (int part = 0; part < 2; ++part) {
    if (!rest.starts_with('.')) return {};
    rest.remove_prefix(1);
    if (TakeNumber(rest).empty()) return {};
  }
  if (!rest.empty() && rest[0] != ' ') return {};
  return std::string(text.substr(0, text.size() - rest.size()));
}

std::string XText(std::string_view text) {
  std::string encoded;
  for (const char c : text) {
    if (c > 32 && c < 127 && c != '+' && c != '=') {
      encoded += c;
    } else {
      encoded += '+';
      AppendHex(encoded, c);
    }
  }
  return encoded;
}

}  // namespace netro
