#include "web/HttpHead.h"

#include <algorithm>

#include "support/Text.h"

namespace netro {
namespace {

constexpr std::size_t kCodeDigits = 3;

bool IsDigit(char c) { return c >= '0' && c <= '9'; }

bool IsBlank(char c) { return c == ' ' || c == '\t'; }

// Takes the next line off `rest`, without its line end.
std::string_view TakeLine(std::string_view& rest) {
  const std::string_view line = rest.substr(0, rest.find('\n'));
  rest.remove_prefix(std::min(line.size() + 1, rest.size()));
  return line.substr(0, line.find('\r'));
}

// What stands behind the protocol and the blanks after it.
std::string_view BehindProtocol(std::string_view line) {
  line.remove_prefix(std::min(line.find(' '), line.size()));
  line.remove_prefix(std::min(line.find_first_not_of(' '), line.size()));
  return line;
}

void SkipLine(std::string_view& rest) {
  const auto end = rest.find('\n');
  rest.remove_prefix(end == std::string_view::npos ? rest.size() : end + 1);
}

bool IsSameLetter(char a, char b) { return ((a ^ b) & ~0x20) == 0; }

// A quick look: most lines are others.
bool MayBeNamed(std::string_view text, std::string_view name) {
  return text.size() > name.size() && IsSameLetter(text.front(), name.front()) &&
         IsSameLetter(text[name.size() - 1], name.back());
}

bool IsNamed(std::string_view line, std::string_view name) {
  std::string_view own = line.substr(0, line.find(':'));
  if (own.size() == line.size()) return false;
  while (!own.empty() && IsBlank(own.back())) own.remove_suffix(1);
  return EqualsIgnoreCase(own, name);
}

// The value of a line, with the lines that continue it, which are taken off `rest`.
std::string TakeValue(std::string_view line, std::string_view& rest) {
  std::string value = Trim(line.substr(line.find(':') + 1));
  while (!rest.empty() && IsBlank(rest.front())) {
    const std::string more = Trim(TakeLine(rest));
    if (!value.empty() && !more.empty()) value += ' ';
    value += more;
  }
  return value;
}

}  // namespace

HttpStatus ParseStatusLine(std::string_view line) {
  HttpStatus status;
  const std::string_view rest = BehindProtocol(line);
  std::size_t digits = 0;
  while (digits < rest.size() && IsDigit(rest[digits])) ++digits;
  if (digits == kCodeDigits) {
    for (const char c : rest.substr(0, digits)) status.code = status.code * 10 + (c - '0');
  }
  const auto blank = rest.find(' ');
  if (blank != std::string_view::npos) status.reason = rest.substr(blank + 1);
  return status;
}

bool HasHttpVersion(std::string_view line) {
  const std::string_view protocol = line.substr(0, line.find(' '));
  return EqualsIgnoreCase(protocol, "HTTP/1.1") || EqualsIgnoreCase(protocol, "HTTP/1.0") ||
         EqualsIgnoreCase(protocol, "HTTP/2");
}

std::string_view HttpHead::FirstLine() const {
  std::string_view rest = text_;
  return TakeLine(rest);
}

std::vector<std::string> HttpHead::Lines(std::string_view name) const {
  std::vector<std::string> lines;
  if (name.empty()) return lines;
  std::string_view rest = text_;
  for (SkipLine(rest); !rest.empty();) {
    if (!MayBeNamed(rest, name)) {
      SkipLine(rest);
      continue;
    }
    const std::string_view line = TakeLine(rest);
    if (IsNamed(line, name)) lines.push_back(TakeValue(line, rest));
  }
  return lines;
}

std::optional<std::string> HttpHead::Field(std::string_view name) const {
  return std::move(FieldsOf({name})[0]);
}

void HttpHead::Collect(std::span<const std::string_view> names,
                       std::span<std::optional<std::string>> found) const {
  std::string_view rest = text_;
  for (SkipLine(rest); !rest.empty();) {
    std::size_t at = 0;
    while (at < names.size() && !MayBeNamed(rest, names[at])) ++at;
    if (at == names.size()) {
      SkipLine(rest);
      continue;
    }
    const std::string_view line = TakeLine(rest);
    while (at < names.size() && !IsNamed(line, names[at])) ++at;
    if (at == names.size()) continue;
    std::string value = TakeValue(line, rest);
    std::optional<std::string>& list = found[at];
    list = list ? *list + ", " + value : std::move(value);
  }
}

std::vector<std::pair<std::string, std::string>> HttpHead::Fields() const {
  std::vector<std::pair<std::string, std::string>> fields;
  std::string_view rest = text_;
  TakeLine(rest);
  while (!rest.empty()) {
    const std::string_view line = TakeLine(rest);
    const auto colon = line.find(':');
    if (colon != std::string_view::npos) {
      fields.emplace_back(Trim(line.substr(0, colon)), TakeValue(line, rest));
    }
  }
  return fields;
}

std::string_view TakeMember(std::string_view& list) {
  const std::string_view member = list.substr(0, list.find(','));
  list.remove_prefix(std::min(member.size() + 1, list.size()));
  return Trimmed(member);
}

bool HasMember(std::string_view list, std::string_view member) {
  while (!list.empty()) {
    if (EqualsIgnoreCase(TakeMember(list), member)) return true;
  }
  return false;
}

}  // namespace netro
