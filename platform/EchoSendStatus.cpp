#include "platform/Echo.h"

namespace netro {

std::int32_t EchoSendStatus(std::int32_t error) {
  switch (error) {
    case 0:
      return kIpSuccess;
    case 10040:  // message too long
      return kIpTooBig;
    case 10050:  // network down, network unreachable
    case 10051:
      return kIpNoNetwork;
    case 10064:  // host down, no route to host
    case 10065:
      return kIpNoHost;
    case 10024:  // no descriptor left
    case 10055:  // no buffers
      return kIpNoResources;
    default:
      return kIpGeneralFailure;
  }
}

}  // namespace netro
