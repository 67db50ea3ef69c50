// What the system says about its adapters and about the way that packets would take. Nothing is
// sent. Thread: any.
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
  std::vector<std::string> addresses;
};

std::vector<SystemAdapter> ReadAdapters();

struct SystemRoute {
  std::string destination;
  std::string refusal;  // the system's word; empty when there is a way
  std::string source;   // the own address
  std::string adapter;
  std::string
      nextHop;  // a gateway, or the destination where it is a neighbour; empty: nobody is asked
  bool hasGateway = false;
};

SystemRoute FindRoute(const std::string& address, const std::vector<SystemAdapter>& adapters);

/// True for ::1 and 127.0.0.0/8.
bool IsLoopback(const std::string& address);

}  // namespace netro::tool
