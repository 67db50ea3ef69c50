// The DNS server of the benchmarks on loopback: one process for UDP, one for TCP, a slow one.
#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "bench/Process.h"

namespace netro::bench {

/// Over UDP every query is answered with one A record. Over TCP the type decides: AXFR of
/// ZoneName(n) brings n A records between the two SOA records, in messages of about 20 KB; all
/// other types as many records of that type as one message holds, see ManyRecords.
class DnsServers {
 public:
  /// Starts the server; ends the program when that fails.
  DnsServers();

  std::uint16_t UdpPort() const { return udpPort_; }
  std::uint16_t TcpPort() const { return tcpPort_; }
  /// Over UDP as well; each answer comes 30 milliseconds after its query.
  std::uint16_t SlowPort() const { return slowPort_; }
  static std::string ZoneName(int hosts) { return std::to_string(hosts) + ".zone.test"; }

 private:
  std::uint16_t udpPort_ = 0;
  std::uint16_t tcpPort_ = 0;
  std::uint16_t slowPort_ = 0;
  std::unique_ptr<ChildProcess> udp_;
  std::unique_ptr<ChildProcess> tcp_;
  std::unique_ptr<ChildProcess> slow_;
};

}  // namespace netro::bench
