#include "mail/AddressSyntax.h"

#include <algorithm>

#include "mail/MailAddress.h"
#include "mail/SmtpTables.h"
#include "platform/Address.h"
#include "support/Text.h"

namespace netro {
namespace {

enum Rule : std::int32_t {
  kNone = 0,
  kEmpty = 1,
  kPattern = 2,
  kDigits = 3,
  kNoHost = 4,
  kTopLevelDomain = 5,
  kClosingBracket = 6,
  kThreeDots = 7,
  kNoLocalPart = 8,
  kIllegalCharacter = 9,
};

constexpr std::string_view kIPv6Tag = "IPv6:";

// Numbers above 255 are nobody's fault here.
Rule CheckLiteral(std::string_view host) {
  host.remove_prefix(1);
  if (!host.ends_with(']')) return kClosingBracket;
  host.remove_suffix(1);
  if (StartsWithIgnoreCase(host, kIPv6Tag)) {
    const auto address = ParseAddress(std::string(host.substr(kIPv6Tag.size())));
    return address && address->IsIPv6() && address->Scope() == 0 ? kNone : kDigits;
  }
  if (std::ranges::count(host, '.') != 3) return kThreeDots;
  return host.find_first_not_of("0123456789.") == host.npos ? kNone : kDigits;
}

Rule CheckHostName(std::string_view host, std::string_view topLevelDomains) {
  const std::size_t dot = host.find('.', 2);  // the pattern ??*.??*
  if (dot == host.npos || host.size() - dot < 3) return kPattern;
  const std::string_view last = host.substr(host.rfind('.') + 1);
  return topLevelDomains.empty() || IsInList(topLevelDomains, last) ? kNone : kTopLevelDomain;
}

Rule CheckLocalPart(std::string_view local) {
  if (local.empty()) return kNoLocalPart;
  const bool clean = CharFilter(local, 31, 255) == local && local.find('\x7F') == local.npos;
  return clean ? kNone : kIllegalCharacter;
}

}  // namespace

std::int32_t CheckAddressSyntax(std::string_view text, std::string_view topLevelDomains,
                                HostRule hostRule) {
  if (text.empty()) return kEmpty;
  const MailAddress found = ExtractAddress(text);
  if (found.address.empty()) return kPattern;
  if (found.host.empty()) return kNoHost;
  const bool isWord = hostRule == HostRule::Any && IsHostName(found.host) &&
                      found.host.find('.') == found.host.npos;
  const Rule rule = isWord                         ? kNone
                    : found.host.starts_with('[') ? CheckLiteral(found.host)
                                                  : CheckHostName(found.host, topLevelDomains);
  return rule != kNone ? rule : CheckLocalPart(found.local);
}

}  // namespace netro
