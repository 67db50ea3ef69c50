// The head of an HTTP message (RFC 9112, sections 2 to 5): its first line and its fields. A view of
// text that somebody else owns. Pure; the text is the peer's word and is trusted in nothing.
//
// Lines end with LF, with or without a CR before it. A line that begins with a blank continues the
// field before it. A value ends at a lone CR.
#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace netro {

struct HttpStatus {
  std::int32_t code = 0;
  std::string reason;
};

/// "HTTP/1.1 200 OK" → 200, "OK". The code is 0 unless three digits stand behind the first blanks.
HttpStatus ParseStatusLine(std::string_view line);

/// True for a line that begins as one of HTTP 1.0, 1.1 or 2.
bool HasHttpVersion(std::string_view line);

/// Takes the next member off a list separated by commas, without the blanks around it.
std::string_view TakeMember(std::string_view& list);
/// True when the list holds `member`, compared without regard to case.
bool HasMember(std::string_view list, std::string_view member);

class HttpHead {
 public:
  /// `text`: without the empty line at its end.
  explicit HttpHead(std::string_view text) : text_(text) {}

  std::string_view FirstLine() const;
  /// The values of all lines of that name, compared without regard to case, in order.
  std::vector<std::string> Lines(std::string_view name) const;
  /// The same as one list (RFC 9110, section 5.3); nothing when there is no such line.
  std::optional<std::string> Field(std::string_view name) const;
  /// All lines as name and value, in order.
  std::vector<std::pair<std::string, std::string>> Fields() const;
  /// Field for several names, in one look at the lines.
  template <std::size_t Count>
  std::array<std::optional<std::string>, Count> FieldsOf(
      const std::string_view (&names)[Count]) const {
    std::array<std::optional<std::string>, Count> found;
    Collect(names, found);
    return found;
  }

 private:
  void Collect(std::span<const std::string_view> names,
               std::span<std::optional<std::string>> found) const;

  std::string_view text_;
};

}  // namespace netro
