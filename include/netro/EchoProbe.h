// What ICMPCls and EchoCls share: the kinds of probes, and the MPLS labels that routers tell.
#pragma once

#include <cstdint>

namespace netro {

/// What a request is. Those of UDP and TCP find out the same as an echo where a firewall drops
/// echoes, and take no permission of the system: routers on the way answer as to any packet.
enum EchoProbeEnum : std::int32_t {
  EchoProbeICMP = 0,
  /// A datagram to a port where nobody listens: the destination says so (11005).
  EchoProbeUDP = 1,
  /// A connection that is closed as soon as it opens. A refusal is a reply too (status 0).
  EchoProbeTCP = 2,
};

/// One entry of the label stack that a packet carried when a router dropped it (RFC 4950, RFC
/// 3032).
struct MplsLabel {
  std::int32_t Label = 0;         // 20 bits
  std::int32_t TrafficClass = 0;  // 0 to 7 (RFC 5462)
  bool BottomOfStack = false;     // the last of the stack
  std::int32_t TTL = 0;           // as it came

  bool operator==(const MplsLabel&) const = default;
};

}  // namespace netro
