// The texts of ICMP result codes. Their numbers are used for other things by the sockets, so this
// table decides. Any thread.
#pragma once

#include <cstdint>
#include <string>

namespace netro {

/// Results that are no IP status.
enum IcmpResult : std::int32_t {
  kIcmpNoHost = 10000,
  kIcmpNoSocket = 10001,
};

/// The text of a positive code; one that is none of ICMP's has the text of a name lookup's result.
std::string IcmpErrorText(std::int32_t code);

}  // namespace netro
