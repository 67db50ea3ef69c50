// The network interfaces of this host. Any thread.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "platform/Address.h"
#include "support/HardwareAddress.h"

namespace netro {

/// Packets since the interface was made.
struct InterfaceCounters {
  std::uint64_t received = 0;
  std::uint64_t sent = 0;
  std::uint64_t receiveErrors = 0;
  std::uint64_t sendErrors = 0;
  std::uint64_t receiveDropped = 0;  // no room to receive into
  std::uint64_t sendDropped = 0;
  std::uint64_t sendAborted = 0;
};

struct NetworkInterface {
  std::int32_t index = 0;  // the system's number
  std::string name;
  bool loopback = false;
  bool ethernet = false;
  std::optional<HardwareAddress> address;  // loopback and tunnels have none
  InterfaceCounters counters;
};

/// Reads all interfaces, in the order of their numbers. Returns the error number.
std::int32_t ReadInterfaces(std::vector<NetworkInterface>& interfaces);

/// The interface that has this address of its own; none also when the system does not tell.
std::optional<NetworkInterface> InterfaceWithAddress(const IpAddress& ip);

}  // namespace netro
