#include "socket/HostLookup.h"

#include <netro/Localization.h>

#include <utility>

#include "platform/ErrorNumbers.h"
#include "socket/SocketErrors.h"

namespace netro {
namespace {

constexpr std::int32_t kTextNoDnsEntries = 10159;

}  // namespace

std::string LookupErrorText(std::int32_t error) try {
  if (error == 0) return {};
  return error == kErrNoDnsEntries ? GetMessageText(kTextNoDnsEntries) : SocketErrorText(error);
} catch (const std::bad_alloc&) {
  return {};
}

LookupAnswer LookupAnswer::Of(std::vector<IpAddress> found) {
  LookupAnswer answer;
  answer.text = FormatAddress(found.front());
  answer.addresses = std::move(found);
  return answer;
}

LookupAnswer ResolveHost(const std::string& host, const LookupSettings& settings,
                         const CancelMark& mark, TimePoint deadline) {
  const bool bracketed = host.starts_with('[') && host.ends_with(']');
  const auto address = ParseAddress(bracketed ? host.substr(1, host.size() - 2) : host);
  if (!address && !host.empty() && host.find(':') == std::string::npos) {
    return DefaultHostLookup().Lookup(host, settings, mark, deadline);
  }
  // No name has a colon.
  if (!address || address->IsBroadcast()) return {{}, kErrNoDnsEntries, {}};
  const auto unwanted = address->IsIPv6() ? onlyIPv4 : onlyIPv6;
  if (settings.preference == unwanted) return {{}, kErrNoData, {}};
  return LookupAnswer::Of({*address});
}

std::int32_t ConnectError(std::int32_t lookupError) {
  return lookupError == kErrNoDnsEntries ? kErrHostNotFound : lookupError;
}

}  // namespace netro
