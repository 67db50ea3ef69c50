// Chunks go before a length (RFC 9112, section 6.3). What the rules leave open, and what they
// forbid and servers do, is taken as widespread clients take it; where these guess (two lengths
// that differ, a length that is no number) the answer is refused.
#include "web/HttpFraming.h"

#include <vector>

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
void ReadLength(const std::string& list, HttpFraming& framing) {
  for (const std::string& member : Split(list, ',')) {
    const auto length = ParseLength(Trim(member), 10);
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
void ReadCodings(const std::string& list, HttpFraming& framing) {
  for (const std::string& member : Split(list, ',')) {
    const std::string coding = Trim(member);
    if (coding.empty() || EqualsIgnoreCase(coding, "identity")) continue;
    if (!EqualsIgnoreCase(coding, "chunked")) {
      framing.error = "The answer's Transfer-Encoding \"" + Shown(list) + "\" is not supported.";
      return;
    }
    framing.chunked = true;
  }
}

// Chunks beside a length, or in HTTP 1.0, somebody on the way may have read otherwise, and then the
// next answer would begin elsewhere for him (RFC 9112, sections 6.1 and 6.3).
bool IsPersistent(const HttpHead& head) {
  if (head.Lists("Connection", "close")) return false;
  const bool old = StartsWithIgnoreCase(head.FirstLine(), "HTTP/1.0");
  const bool doubtful = head.Field("Transfer-Encoding") && (old || head.Field("Content-Length"));
  return !doubtful && (!old || head.Lists("Connection", "keep-alive"));
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

HttpFraming ReadFraming(const HttpHead& head, bool headOnly) {
  HttpFraming framing;
  const std::int32_t code = ParseStatusLine(head.FirstLine()).code;
  if (const auto list = head.Field("Content-Length")) ReadLength(*list, framing);
  if (const auto list = head.Field("Transfer-Encoding"); list && framing.error.empty()) {
    ReadCodings(*list, framing);
  }
  if (framing.chunked || !framing.error.empty()) framing.length.reset();
  framing.body = framing.chunked  ? HttpFraming::Body::Chunked
                 : framing.length ? HttpFraming::Body::Sized
                                  : HttpFraming::Body::UntilClose;
  framing.closeMeansEnd =
      framing.body == HttpFraming::Body::UntilClose || head.Lists("Connection", "close");
  const bool empty = code == 204 || code == 304;
  if (empty) framing.error.clear();
  const bool delimited = headOnly || empty || framing.body != HttpFraming::Body::UntilClose;
  framing.persistent = delimited && code != 101 && IsPersistent(head);
  if (headOnly || empty) framing.body = HttpFraming::Body::None;
  return framing;
}

}  // namespace netro
