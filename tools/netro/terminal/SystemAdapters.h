// What the system says about its adapters. Thread: any.
#pragma once

#include <string>
#include <vector>

namespace netro::tool {

struct SystemAdapter {
  std::string name;
  bool isUp = false;       // and has a link
  bool isEnabled = false;  // by the administrator
  bool isLoopback = false;
  bool asksNeighbours = false;  // by ARP or neighbour discovery
  std::string mac;              // "02:00:5E:00:00:0A"; empty without one
  std::vector<std::string> addresses;
};

/// In the system's order.
std::vector<SystemAdapter> ReadAdapters();

}  // namespace netro::tool
