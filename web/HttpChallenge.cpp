#include "web/HttpChallenge.h"

#include <vector>

#include "support/Text.h"

namespace netro {
namespace {

// Splits at commas outside of quotes: a realm may hold one.
std::vector<std::string> SplitItems(std::string_view text) {
  std::vector<std::string> items(1);
  bool quoted = false;
  for (std::size_t i = 0; i < text.size(); ++i) {
    const char c = text[i];
    if (c == '"') quoted = !quoted;
    if (c == ',' && !quoted) {
      items.emplace_back();
      continue;
    }
    items.back() += c;
    if (c == '\\' && quoted && i + 1 < text.size()) items.back() += text[++i];
  }
  return items;
}

// Without its quotes, with `\x` resolved to x.
std::string Unquote(std::string_view value) {
  std::string plain;
  for (std::size_t i = 0; i < value.size(); ++i) {
    if (value[i] == '"') continue;
    if (value[i] == '\\' && i + 1 < value.size()) ++i;
    const auto c = static_cast<unsigned char>(value[i]);
    if (c >= 0x20 && c != 0x7F) plain += value[i];
  }
  return plain;
}

HttpChallenge ParseDigest(std::string_view parameters) {
  HttpChallenge challenge;
  challenge.digest = true;
  for (const std::string& item : SplitItems(parameters)) {
    const auto equals = item.find('=');
    if (equals == std::string::npos) continue;
    const std::string name = ToLower(Trim(std::string_view(item).substr(0, equals)));
    const std::string value = Unquote(Trim(std::string_view(item).substr(equals + 1)));
    if (name == "realm") challenge.realm = value;
    if (name == "nonce") challenge.nonce = value;
    if (name == "opaque") challenge.opaque = value;
  }
  return challenge;
}

}  // namespace

HttpChallenge ParseChallenge(std::string_view header, std::string_view lineName) {
  for (const std::string& line : Split(header, '\n')) {
    const auto colon = line.find(':');
    if (colon == std::string::npos) continue;
    if (!EqualsIgnoreCase(Trim(std::string_view(line).substr(0, colon)), lineName)) continue;
    std::string value = Trim(std::string_view(line).substr(colon + 1));
    if (value.ends_with('\r')) value.pop_back();
    const auto blank = value.find(' ');
    const std::string scheme = ToLower(std::string_view(value).substr(0, blank));
    if (scheme == "basic") return {};
    if (scheme == "digest" && blank != std::string::npos) {
      return ParseDigest(std::string_view(value).substr(blank + 1));
    }
  }
  return {};
}

}  // namespace netro
