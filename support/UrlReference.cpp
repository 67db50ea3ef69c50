#include "support/UrlReference.h"

#include <algorithm>
#include <cstddef>
#include <optional>

#include "support/Text.h"

namespace netro {
namespace {

/// The five components (RFC 3986, appendix B). One that is missing is not one that is empty.
struct Reference {
  std::optional<std::string_view> scheme;
  std::optional<std::string_view> authority;
  std::string_view path;
  std::optional<std::string_view> query;
  std::optional<std::string_view> fragment;
};

bool IsScheme(std::string_view text) {
  const bool letters = std::ranges::all_of(
      text, [](char c) { return IsAlphanumeric(c) || c == '+' || c == '-' || c == '.'; });
  return !text.empty() && letters && IsAlphanumeric(text[0]) && (text[0] < '0' || text[0] > '9');
}

/// Takes what stands behind the first `mark` off `text`, and the mark.
std::optional<std::string_view> TakeBehind(std::string_view& text, char mark) {
  const std::size_t at = text.find(mark);
  if (at == text.npos) return std::nullopt;
  const std::string_view behind = text.substr(at + 1);
  text = text.substr(0, at);
  return behind;
}

Reference Parse(std::string_view text) {
  Reference parts;
  parts.fragment = TakeBehind(text, '#');
  parts.query = TakeBehind(text, '?');
  if (const std::size_t colon = text.find(':');
      IsScheme(text.substr(0, colon)) && colon != text.npos) {
    parts.scheme = text.substr(0, colon);
    text.remove_prefix(colon + 1);
  }
  if (text.starts_with("//")) {
    text.remove_prefix(2);
    parts.authority = text.substr(0, text.find('/'));
    text.remove_prefix(parts.authority->size());
  }
  parts.path = text;
  return parts;
}

// Section 5.2.4, for paths that begin with "/" or came from a base without one.
std::string RemoveDotSegments(std::string_view path) {
  std::string out;
  while (!path.empty()) {
    const std::size_t end = path.find('/', 1);
    const std::string_view segment = path.substr(0, end);
    const std::string_view name = segment.substr(segment.starts_with('/') ? 1 : 0);
    const bool last = end == path.npos;
    path.remove_prefix(segment.size());
    if (name == "..") out.resize(std::min(out.rfind('/'), out.size()));
    if (name == ".." && out.find('/') == out.npos) out.clear();
    if (name != "." && name != "..") {
      out += segment;
    } else if (last && segment.starts_with('/')) {
      out += '/';
    }
  }
  return out;
}

// Section 5.2.3.
std::string Merge(const Reference& base, std::string_view path) {
  if (base.authority && base.path.empty()) return "/" + std::string(path);
  return std::string(base.path.substr(0, base.path.rfind('/') + 1)) + std::string(path);
}

std::string Compose(const Reference& parts) {
  std::string text;
  if (parts.scheme) text.append(*parts.scheme).append(":");
  if (parts.authority) text.append("//").append(*parts.authority);
  text += parts.path;
  if (parts.query) text.append("?").append(*parts.query);
  if (parts.fragment) text.append("#").append(*parts.fragment);
  return text;
}

}  // namespace

// Section 5.2.2.
std::string ResolveReference(std::string_view base, std::string_view reference) {
  const Reference from = Parse(base);
  Reference to = Parse(reference);
  std::string path;
  if (to.scheme || to.authority || to.path.starts_with('/')) {
    path = RemoveDotSegments(to.path);
  } else if (to.path.empty()) {
    path = from.path;
    if (!to.query) to.query = from.query;
  } else {
    path = RemoveDotSegments(Merge(from, to.path));
  }
  if (!to.scheme) {
    if (!to.authority) to.authority = from.authority;
    to.scheme = from.scheme;
  }
  to.path = path;
  return Compose(to);
}

std::int32_t DefaultPort(std::string_view protocol) {
  return EqualsIgnoreCase(protocol, "https") ? 443 : 80;
}

std::int32_t EffectivePort(const Url& url) {
  return url.hasPort ? url.port : DefaultPort(url.protocol);
}

bool SameOrigin(const Url& a, const Url& b) {
  return EqualsIgnoreCase(a.protocol, b.protocol) && EqualsIgnoreCase(a.host, b.host) &&
         EffectivePort(a) == EffectivePort(b);
}

std::string UrlText(const Url& url) {
  std::string text;
  text.reserve(url.protocol.size() + url.host.size() + url.path.size() + url.query.size() + 16);
  text.append(url.protocol).append("://");
  if (url.host.find(':') == std::string::npos) {
    text += url.host;
  } else {
    std::string host = url.host;
    if (const std::size_t zone = host.find('%'); zone != std::string::npos) {
      host.insert(zone + 1, "25");
    }
    text.append("[").append(host).append("]");
  }
  const std::int32_t port = EffectivePort(url);
  if (port != DefaultPort(url.protocol)) text.append(":").append(std::to_string(port));
  text.append("/").append(url.path);
  if (!url.query.empty()) text.append("?").append(url.query);
  return text;
}

std::string ShownUrl(std::string_view text, std::string_view instead) {
  const std::size_t mark = text.find("://");
  std::size_t begin = 0;
  // What is no word may be a name and a password already.
  if (mark < text.find_first_of("/?#") && text.find_first_of(":@") == mark) {
    begin = mark + 3;
  } else if (text.starts_with("//")) {
    begin = 2;
  }
  // In a bad URL the password may hold what ends an authority: all up to the last "@" goes.
  const bool good = SplitUrl(text).error.empty();
  const std::size_t end = good ? text.find_first_of("/?#", begin) : text.npos;
  const std::size_t at = text.substr(0, end).rfind('@');
  std::string shown(text.substr(0, begin));
  const bool has = at != text.npos && at >= begin;
  shown.append(has ? instead : "").append(text.substr(has ? at + 1 : begin));
  std::ranges::replace_if(
      shown, [](char c) { return static_cast<unsigned char>(c) < 0x20 || c == 0x7F; }, '?');
  return shown;
}

}  // namespace netro
