// The answers of WHOIS servers, from one to the next. Thread: the loop's.
#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "whois/WhoIsOptions.h"
#include "whois/WhoIsServer.h"

namespace netro::tool {

struct WhoIsAnswer {
  WhoIsServer server;
  std::string text;  // as it came, also before a failure
  std::int32_t errorNumber = 0;
  std::string errorText;
  double seconds = 0;
  std::optional<WhoIsServer> next;  // the server that is asked next
  std::vector<std::string> notes;   // on referrals that were not followed
};

/// Asks the request's server and, if it says so, those that are referred to: five at most, none
/// twice, and none after a failure. Hands each answer over when it is there.
void AskWhoIsServers(const WhoIsRequest& request, const std::function<void(WhoIsAnswer)>& take);

}  // namespace netro::tool
