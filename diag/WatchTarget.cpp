#include "diag/WatchTarget.h"

#include <algorithm>
#include <charconv>
#include <iterator>
#include <optional>
#include <string_view>
#include <unordered_map>

#include "diag/WatchShown.h"
#include "support/Text.h"

namespace netro {
namespace {

constexpr std::int32_t kHighestPort = 65'535;

struct KindWord {
  std::string_view word;
  WatchKind kind;
  std::int32_t port;  // 0: it has none, or needs one
};
constexpr KindWord kKinds[] = {
    {"Ping", WatchKind::Ping, 0}, {"http", WatchKind::Http, 0},  {"https", WatchKind::Https, 0},
    {"tcp", WatchKind::Tcp, 0},   {"smtp", WatchKind::Smtp, 25}, {"dns", WatchKind::Dns, 53},
    {"ntp", WatchKind::Ntp, 0},  // at another port than 123 QueryTimeCLS speaks another protocol
};

std::optional<std::int32_t> Number(std::string_view text, std::int32_t least, std::int32_t most) {
  std::int32_t value = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
  const bool isWhole = error == std::errc() && end == text.data() + text.size();
  if (!isWhole || value < least || value > most) return std::nullopt;
  return value;
}

bool IsWeb(WatchKind kind) { return kind == WatchKind::Http || kind == WatchKind::Https; }

// What follows the colon: "22", "587", "example.com", "example.com:5353".
bool ReadArgument(std::string_view argument, WatchTarget& to) {
  if (to.kind == WatchKind::Dns) {
    const std::size_t colon = argument.find(':');
    to.question = argument.substr(0, colon);
    if (!IsHostName(to.question)) return false;
    argument = colon == argument.npos ? "" : argument.substr(colon + 1);
    if (colon == std::string_view::npos) return true;
  } else if (to.kind != WatchKind::Tcp && to.kind != WatchKind::Smtp) {
    return false;
  }
  const auto port = Number(argument, 1, kHighestPort);
  to.port = port.value_or(0);
  return port.has_value();
}

bool ReadWord(std::string_view word, WatchTarget& to) {
  const std::size_t colon = word.find(':');
  const auto known = std::ranges::find_if(kKinds, [&](const KindWord& kind) {
    return EqualsIgnoreCase(kind.word, word.substr(0, colon));
  });
  if (known == std::end(kKinds)) return false;
  to.kind = known->kind;
  to.port = known->port;
  to.kindText = known->word;
  if (colon == word.npos) return to.kind != WatchKind::Tcp && to.kind != WatchKind::Dns;
  to.kindText += word.substr(colon);
  return ReadArgument(word.substr(colon + 1), to);
}

// "200", "200-299", "14d"
bool ReadWish(std::string_view wish, WatchTarget& to) {
  if (!IsWeb(to.kind)) return false;
  if (to.kind == WatchKind::Https && wish.ends_with('d')) {
    const auto days = Number(wish.substr(0, wish.size() - 1), 0, 10'000);
    to.daysLeft = days.value_or(0);
    return days.has_value();
  }
  const std::size_t line = wish.find('-');
  const auto low = Number(wish.substr(0, line), 200, 599);
  const auto high = line == wish.npos ? low : Number(wish.substr(line + 1), 200, 599);
  if (!low || !high || *low > *high) return false;
  to.lowestStatus = *low;
  to.highestStatus = *high;
  return true;
}

// A text between double quotes at the end, which is cut off.
bool TakeText(std::string_view& kind, WatchTarget& to) {
  const std::size_t quote = kind.find('"');
  if (quote == kind.npos) return true;
  if (!IsWeb(to.kind) && to.kind != WatchKind::Tcp) return false;
  if (quote + 2 >= kind.size() || !kind.ends_with('"')) return false;
  to.text = kind.substr(quote + 1, kind.size() - quote - 2);
  kind = kind.substr(0, quote);
  return true;
}

}  // namespace

std::string ReadWatchKind(const std::string& kind, bool hasTls, WatchTarget& target) {
  const std::string noKind = "'" + kind + "' is no kind of probe.";
  std::string_view rest = Trimmed(kind);
  if (!rest.empty()) {
    const std::size_t end = std::min(rest.find_first_of(" \t\""), rest.size());
    if (!ReadWord(rest.substr(0, end), target)) return noKind;
    rest.remove_prefix(end);
    if (!TakeText(rest, target)) return noKind;
    for (const std::string& wish : Split(rest, ' ')) {
      if (!Trim(wish).empty() && !ReadWish(Trimmed(wish), target)) return noKind;
    }
  }
  const bool isSecure = StartsWithIgnoreCase(target.host, "https:");
  if (target.kind == WatchKind::Https && !isSecure)
    return "'" + WithoutUserInfo(target.host) + "' is no https URL.";
  if (!isSecure || !IsWeb(target.kind)) return {};
  target.kind = WatchKind::Https;
  return hasTls ? std::string()
                : "'" + WithoutUserInfo(target.host) + "' needs TLS, which this program has not.";
}

// A URL may hold bars.
std::string ReadWatchTarget(const std::string& value, bool hasTls, WatchTarget& target) {
  const std::size_t bar = value.rfind('|');
  target.host = Trim(value.substr(0, bar));
  if (bar == std::string::npos) {
    const bool isUrl = value.find("://") != std::string::npos;
    return isUrl ? "'" + WithoutUserInfo(value) + "' is a URL without a kind of probe."
                 : std::string();
  }
  const std::string kind = Trim(value.substr(bar + 1));
  if (kind.empty() && !target.host.empty()) return "'' is no kind of probe.";
  return ReadWatchKind(kind, hasTls, target);
}

std::size_t FindWatchTarget(const std::vector<WatchTarget>& targets, const std::string& name) {
  const auto found = std::ranges::find_if(
      targets, [&](const WatchTarget& target) { return EqualsIgnoreCase(target.name, name); });
  return static_cast<std::size_t>(found - targets.begin());
}

std::size_t FindBadParent(const std::vector<WatchTarget>& targets, const std::string& uplink,
                          std::string& why) {
  std::unordered_map<std::string, std::size_t> byName;
  for (std::size_t i = 0; i < targets.size(); ++i) byName.emplace(ToLower(targets[i].name), i);
  for (std::size_t i = 0; i < targets.size(); ++i) {
    if (targets[i].parent.empty()) continue;
    why = " is the uplink, which stands behind no other.";
    if (EqualsIgnoreCase(targets[i].name, uplink)) return i;
    std::size_t steps = 0;
    for (std::size_t at = i; !targets[at].parent.empty(); ++steps) {
      const auto parent = byName.find(ToLower(targets[at].parent));
      why = " stands behind '" + targets[at].parent + "', which is not in the list.";
      if (parent == byName.end()) return at;
      at = parent->second;
      why = " stands behind itself.";
      if (at == i || steps > targets.size()) return i;
    }
  }
  why.clear();
  return targets.size();
}

}  // namespace netro
