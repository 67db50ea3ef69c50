// A server that sends back what it gets, for any number of connections, in a process of its own.
#pragma once

#include <cstdint>
#include <memory>

#include "bench/Process.h"

namespace netro::bench {

class EchoServer {
 public:
  /// Listens and starts the process. Port() is 0 when that failed.
  EchoServer();

  std::uint16_t Port() const { return port_; }

 private:
  std::uint16_t port_ = 0;
  std::unique_ptr<ChildProcess> process_;
};

}  // namespace netro::bench
