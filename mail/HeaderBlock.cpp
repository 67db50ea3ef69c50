#include "mail/HeaderBlock.h"

#include <algorithm>
#include <cstddef>

#include "support/Text.h"

namespace netro {
namespace {

constexpr std::string_view kLineEnd("\r\n");

bool IsLineEnd(char c) { return c == '\r' || c == '\n'; }

/// Takes lines off the front of a text; one of them may be without an end, the last.
class Lines {
 public:
  explicit Lines(std::string_view text) : rest_(text) {}

  bool Next() {
    if (rest_.empty()) return false;
    const auto end = std::find_if(rest_.begin(), rest_.end(), IsLineEnd);
    line_ = rest_.substr(0, static_cast<std::size_t>(end - rest_.begin()));
    rest_.remove_prefix(line_.size());
    if (rest_.starts_with(kLineEnd)) {
      rest_.remove_prefix(kLineEnd.size());
    } else if (!rest_.empty()) {
      rest_.remove_prefix(1);
    }
    return true;
  }

  /// Without its end.
  std::string_view Line() const { return line_; }

 private:
  std::string_view line_;
  std::string_view rest_;
};

bool IsContinued(std::string_view line) { return line.starts_with(' ') || line.starts_with('\t'); }

/// The name of the field that a line begins; empty when it begins none. Blanks before the colon are
/// of old (RFC 5322, section 4.5).
std::string_view FieldName(std::string_view line) {
  const std::size_t colon = line.find(':');
  if (colon == line.npos) return {};
  std::string_view name = line.substr(0, colon);
  while (name.ends_with(' ') || name.ends_with('\t')) name.remove_suffix(1);
  return IsFieldName(name) ? name : std::string_view();
}

}  // namespace

bool IsFieldName(std::string_view name) {
  const auto fits = [](char c) { return c > ' ' && c <= '~' && c != ':'; };
  return !name.empty() && std::all_of(name.begin(), name.end(), fits);
}

bool IsBlindCopyName(std::string_view name) {
  return EqualsIgnoreCase(name, "Bcc") || EqualsIgnoreCase(name, "Resent-Bcc");
}

bool HasHeaderBlock(std::string_view message) {
  Lines lines(message);
  bool any = false;
  while (lines.Next() && !lines.Line().empty()) {
    if (any && IsContinued(lines.Line())) continue;
    if (FieldName(lines.Line()).empty()) return false;
    any = true;
  }
  return any;
}

}  // namespace netro
