// Chunks go before a length (RFC 9112, section 6.3). What the rules leave open, and what they
// forbid and servers do, is taken as widespread clients take it; where these guess (two lengths
// that differ, a length that is no number) the answer is refused.
#include "web/HttpFraming.h"

#include <algorithm>
#include <utility>

#include "support/Text.h"

namespace netro {
namespace {

constexpr std::uint64_t kLargestLength = 1ULL << 53;

int DigitValue(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  return 99;
}

// A list of the same length again and again counts once (RFC 9110, section 8.6).
void ReadLength(std::string_view list, HttpFraming& framing) {
  std::string_view rest = list;
  for (auto left = std::ranges::count(list, ',') + 1; left > 0; --left) {
    const auto length = ParseLength(TakeMember(rest), 10);
    if (!length) {
      framing.error = "The answer's Content-Length \"" + Shown(list) + "\" is no length.";
    } else if (framing.length && *framing.length != *length) {
      framing.error = "The answer has two different lengths in Content-Length.";
    }
    if (!framing.error.empty()) return;
    framing.length = length;
  }
}

// A coding other than "chunked" would come out as it is, which nobody could tell from the body.
void ReadCodings(std::string_view list, HttpFraming& framing) {
  for (std::string_view rest = list; !rest.empty();) {
    const std::string_view coding = TakeMember(rest);
    if (coding.empty() || EqualsIgnoreCase(coding, "identity")) continue;
    if (!EqualsIgnoreCase(coding, "chunked")) {
      framing.error = "The answer's Transfer-Encoding \"" + Shown(list) + "\" is not supported.";
      return;
    }
    framing.chunked = true;
  }
}

// Of the header's fields, those that decide where the body ends.
struct FramingFields {
  std::optional<std::string> length;
  std::optional<std::string> codings;
  std::string connection;
};

FramingFields FieldsOf(const HttpHead& head) {
  auto found = head.FieldsOf({"Content-Length", "Transfer-Encoding", "Connection"});
  return {std::move(found[0]), std::move(found[1]), std::move(found[2]).value_or("")};
}

// Chunks beside a length, or in HTTP 1.0, somebody on the way may have read otherwise, and then the
// next answer would begin elsewhere for him (RFC 9112, sections 6.1 and 6.3).
bool IsPersistent(const HttpHead& head, const FramingFields& fields) {
  if (HasMember(fields.connection, "close")) return false;
  const bool old = StartsWithIgnoreCase(head.FirstLine(), "HTTP/1.0");
  const bool doubtful = fields.codings && (old || fields.length);
  return !doubtful && (!old || HasMember(fields.connection, "keep-alive"));
}

}  // namespace

std::optional<std::uint64_t> ParseLength(std::string_view text, unsigned base) {
  std::uint64_t value = 0;
  if (text.empty()) return std::nullopt;
  for (const char c : text) {
    const auto digit = static_cast<unsigned>(DigitValue(c));
    if (digit >= base) return std::nullopt;
    value = value * base + digit;
    if (value > kLargestLength) return std::nullopt;
  }
  return value;
}

std::string Shown(std::string_view text) {
  std::string shown(text.substr(0, 40));
  for (char& c : shown) {
    if (static_cast<unsigned char>(c) < 0x20 || c == 0x7F) c = '?';
  }
  return shown;
}

HttpFraming ReadFraming(const HttpHead& head, std::int32_t code, bool headOnly) {
  HttpFraming framing;
  const FramingFields fields = FieldsOf(head);
  if (fields.length) ReadLength(*fields.length, framing);
  if (fields.codings && framing.error.empty()) ReadCodings(*fields.codings, framing);
  if (framing.chunked || !framing.error.empty()) framing.length.reset();
  framing.body = framing.chunked  ? HttpFraming::Body::Chunked
                 : framing.length ? HttpFraming::Body::Sized
                                  : HttpFraming::Body::UntilClose;
  framing.closeMeansEnd =
      framing.body == HttpFraming::Body::UntilClose || HasMember(fields.connection, "close");
  const bool empty = code == 204 || code == 304;
  if (empty) framing.error.clear();
  const bool delimited = headOnly || empty || framing.body != HttpFraming::Body::UntilClose;
  framing.persistent = delimited && code != 101 && IsPersistent(head, fields);
  if (headOnly || empty) framing.body = HttpFraming::Body::None;
  return framing;
}

}  // namespace netro
