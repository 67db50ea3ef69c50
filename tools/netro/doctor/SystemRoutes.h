// What the system says about the way that packets would take. Nothing is sent. Thread: any.
#pragma once

#include <string>
#include <vector>

#include "terminal/SystemAdapters.h"

namespace netro::tool {

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
