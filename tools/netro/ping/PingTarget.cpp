// One host of "netro ping" and how it has answered.

#include "ping/PingTarget.h"

namespace netro::tool {

double PingTarget::LossPercent() const {
  const std::int32_t ended = Received() + failed;
  return ended == 0 ? -1 : 100.0 * failed / ended;
}

std::string PingTarget::Label() const {
  return address.empty() || address == host ? host : host + " (" + address + ")";
}

}  // namespace netro::tool
