#include "socket/HostLookup.h"

#include <netro/Localization.h>

#include <utility>

#include "platform/ErrorNumbers.h"
#include "platform/Sockets.h"
#include "socket/SocketErrors.h"

namespace netro {
namespace {

constexpr std::int32_t kNoAddress = -1;
constexpr std::int32_t kTextNoDnsEntries = 10159;

}  // namespace

std::string LookupErrorText(std::int32_t error) {
  if (error == 0) return {};
  return error == kErrNoDnsEntries ? GetMessageText(kTextNoDnsEntries) : SocketErrorText(error);
}

LookupAnswer ResolveHost(std::string host, std::optional<std::string> servers,
                         const CancelMark& mark, TimePoint deadline) {
  LookupAnswer answer;
  std::optional<std::int32_t> ip = ParseDotted(host);
  if (!ip) {
    answer = DefaultHostLookup().Lookup(host, std::move(servers), mark, deadline);
    if (answer.error != 0) return answer;
    ip = ParseDotted(answer.text.empty() ? host : answer.text);
  }
  answer.ip = ip.value_or(kNoAddress);
  if (answer.ip == kNoAddress) answer.error = kErrNoDnsEntries;
  return answer;
}

}  // namespace netro
