// Splitting and encoding of URLs (RFC 3986). Thread: any.

#include "support/Url.h"

#include <algorithm>
#include <charconv>
#include <cstddef>

#include "support/Text.h"

namespace netro {
namespace {

/// The value of a hexadecimal digit, -1 for any other character.
int HexValue(char c) {
  if (c >= '0' && c <= '9') {
    return c - '0';
  }
  if (c >= 'A' && c <= 'F') {
    return c - 'A' + 10;
  }
  return c >= 'a' && c <= 'f' ? c - 'a' + 10 : -1;
}

/// True when "%XX" stands at `at`.
bool IsTriple(std::string_view text, std::size_t at) {
  return text[at] == '%' && text.size() - at >= 3 && HexValue(text[at + 1]) >= 0 &&
         HexValue(text[at + 2]) >= 0;
}

std::string PercentDecode(std::string_view text) {
  std::string decoded;
  for (std::size_t i = 0; i < text.size(); ++i) {
    if (IsTriple(text, i)) {
      decoded += static_cast<char>(HexValue(text[i + 1]) * 16 + HexValue(text[i + 2]));
      i += 2;
    } else {
      decoded += text[i];
    }
  }
  return decoded;
}

bool IsHostCharacter(char c) {
  return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '-' ||
         c == '.' || c == '_' || static_cast<unsigned char>(c) >= 0x80;
}

// RFC 3986, section 3.1; in lower case.
bool IsProtocolCharacter(char c) {
  return (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') || c == '+' || c == '-' || c == '.';
}

bool IsControl(char c) { return static_cast<unsigned char>(c) < 0x20 || c == 0x7F; }

bool IsZone(std::string_view text) {
  return !text.empty() &&
         std::ranges::all_of(text, [](char c) { return IsHostCharacter(c) && c > 0; });
}

/// Groups of up to four hexadecimal digits with ":" between them, one run of zeros as "::"; the
/// last two groups may be a dotted address (RFC 3986, section 3.2.2).
bool IsIPv6(std::string_view text) {
  int groups = 0;
  const std::size_t gap = text.find("::");
  if (gap != text.npos && text.find("::", gap + 1) != text.npos) {
    return false;
  }
  for (const std::string& part : Split(text, ':')) {
    const bool dotted = part.find('.') != part.npos;
    const bool digits =
        std::ranges::all_of(part, [&](char c) { return HexValue(c) >= 0 || (dotted && c == '.'); });
    if (!digits || (dotted ? std::ranges::count(part, '.') != 3 : part.size() > 4)) {
      return false;
    }
    groups += dotted ? 2 : part.empty() ? 0 : 1;
  }
  const bool ends =
      (!text.starts_with(':') || gap == 0) && (!text.ends_with(':') || gap == text.size() - 2);
  return ends && (gap == text.npos ? groups == 8 : groups < 8);
}

/// `text` for use in an error text: no control byte reaches a terminal or a log. What an "@" comes
/// behind, in `rest`, may be of a password that was not encoded.
std::string Quoted(std::string text, std::string_view rest) {
  if (rest.find('@') != rest.npos) return "***";
  std::ranges::replace_if(text, IsControl, '?');
  return "\"" + text + "\"";
}

/// Takes one part after the other off `rest_`. A step that can fail returns an error text, which is
/// empty when all is well.
class Splitter {
 public:
  explicit Splitter(std::string_view text) : rest_(text) {}

  UrlResult Run() {
    if (HasControl(rest_)) {
      return {{}, "The URL must not contain CR, LF or NUL."};
    }
    if (std::string error = TakeProtocol(); !error.empty()) {
      return {{}, error};
    }
    std::string_view authority = rest_.substr(0, rest_.find_first_of("/?#"));
    rest_.remove_prefix(authority.size());
    std::string error = TakeUserInfo(authority);
    if (error.empty()) {
      error = SplitHostAndPort(authority);
    }
    if (!error.empty()) {
      return {{}, error};
    }
    SplitPathAndQuery();
    return {std::move(url_), {}};
  }

 private:
  std::string TakeProtocol() {
    // Only what stands before the first "/" can be the protocol's end: "host/go?to=http://x".
    const std::size_t end = rest_.find("://");
    if (end != rest_.npos && end < rest_.find_first_of("/?#")) {
      if (end > 0) {
        url_.protocol = ToLower(rest_.substr(0, end));
        if (!std::ranges::all_of(url_.protocol, IsProtocolCharacter)) {
          return "The URL's protocol " + Quoted(url_.protocol, rest_) + " is not a word.";
        }
      }
      rest_.remove_prefix(end + 3);
    } else if (rest_.starts_with("//")) {
      rest_.remove_prefix(2);
    }
    return {};
  }

  /// Leaves host and port in `authority`.
  std::string TakeUserInfo(std::string_view& authority) {
    // The last "@": a password may hold one that was not encoded.
    const std::size_t end = authority.rfind('@');
    if (end == authority.npos) {
      return {};
    }
    const std::string_view info = authority.substr(0, end);
    authority.remove_prefix(end + 1);
    const std::size_t colon = std::min(info.find(':'), info.size());
    url_.hasUserInfo = !info.empty();
    url_.user = PercentDecode(info.substr(0, colon));
    url_.password = PercentDecode(info.substr(std::min(colon + 1, info.size())));
    if (HasControl(url_.user) || HasControl(url_.password)) {
      return "The user information of the URL must not contain CR, LF or NUL.";
    }
    return {};
  }

  std::string SplitHostAndPort(std::string_view authority) {
    if (authority.starts_with('[')) {
      return SplitLiteralAndPort(authority);
    }
    const std::size_t colon = std::min(authority.find(':'), authority.size());
    url_.host = authority.substr(0, colon);
    if (url_.host.empty()) {
      return "The URL contains no host.";
    }
    if (!std::ranges::all_of(url_.host, IsHostCharacter)) {
      return "The URL's host " + Quoted(url_.host, rest_) +
             " contains a character that no host name has.";
    }
    return ReadPort(authority.substr(std::min(colon + 1, authority.size())));
  }

  /// "[2001:db8::1]:8080", the zone of an address as "%25eth0" (RFC 6874).
  std::string SplitLiteralAndPort(std::string_view authority) {
    const std::size_t end = authority.find(']');
    const std::string_view literal = authority.substr(1, end == authority.npos ? end : end - 1);
    const std::size_t zone = literal.find("%25");
    const std::string_view rest = authority.substr(std::min(end, authority.size() - 1) + 1);
    const bool hasZone = zone != literal.npos;
    if (end == authority.npos || !IsIPv6(literal.substr(0, zone)) ||
        (hasZone && !IsZone(literal.substr(zone + 3))) || (!rest.empty() && rest[0] != ':')) {
      return "The URL's host " + Quoted(std::string(authority), rest_) + " is no IPv6 address.";
    }
    url_.host = literal.substr(0, zone);
    if (hasZone) {
      url_.host.append("%").append(literal.substr(zone + 3));
    }
    return ReadPort(rest.substr(rest.empty() ? 0 : 1));
  }

  std::string ReadPort(std::string_view text) {
    if (text.empty()) {
      return {};
    }
    std::uint16_t port = 0;
    const char* const end = text.data() + text.size();
    const auto [parsed, failure] = std::from_chars(text.data(), end, port);
    if (failure != std::errc() || parsed != end || port == 0) {
      return "The URL's port " + Quoted(std::string(text), rest_) +
             " is not a number from 1 to 65535.";
    }
    url_.port = port;
    url_.hasPort = true;
    return {};
  }

  void SplitPathAndQuery() {
    rest_ = rest_.substr(0, rest_.find('#'));
    const std::size_t mark = std::min(rest_.find('?'), rest_.size());
    std::string_view path = rest_.substr(0, mark);
    if (path.starts_with('/')) {
      path.remove_prefix(1);
    }
    url_.path = path;
    url_.query = rest_.substr(std::min(mark + 1, rest_.size()));
  }

  std::string_view rest_;
  Url url_;
};

bool MayStand(char c) {
  constexpr std::string_view kForbidden = "\"#<>\\^`{|}%";
  return IsAlphanumeric(c) || (c > ' ' && c < 0x7F && kForbidden.find(c) == kForbidden.npos);
}

}  // namespace

UrlResult SplitUrl(std::string_view text) { return Splitter(text).Run(); }

std::string UrlEncode(std::string_view text) {
  constexpr std::string_view kDigits = "0123456789ABCDEF";
  std::string encoded;
  encoded.reserve(text.size());
  for (std::size_t i = 0; i < text.size(); ++i) {
    if (MayStand(text[i]) || IsTriple(text, i)) {
      encoded += text[i];
      continue;
    }
    const auto byte = static_cast<unsigned char>(text[i]);
    encoded += '%';
    encoded += kDigits[byte >> 4];
    encoded += kDigits[byte & 15];
  }
  return encoded;
}

}  // namespace netro
