// A server for any number of connections, in a process of its own: one thread on an epoll set,
// which does so little for each that the client is what a measurement shows.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <string_view>

#include "bench/Process.h"

namespace netro::bench {

/// What the answers of one connection depend on; empty at its start.
struct Session {
  bool inData = false;
  std::size_t bytes = 0;
  std::string tail = {};
  std::string reply = {};
};

class LoadServer {
 public:
  /// Makes what is sent back for what has arrived; nothing when more is awaited.
  using Answer = std::function<std::string_view(std::string_view received, Session& session)>;

  /// Listens and starts the process. Port() is 0 when that failed. Each connection begins with the
  /// greeting and is reset when the client closes it, so that no port stays behind in TIME_WAIT.
  explicit LoadServer(const Answer& answer, std::string_view greeting = {});

  std::uint16_t Port() const { return port_; }

 private:
  std::uint16_t port_ = 0;
  std::unique_ptr<ChildProcess> process_;
};

}  // namespace netro::bench
