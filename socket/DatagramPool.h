// Datagram sockets that the exchanges of one thread hand on to one another while several of them
// run: making a socket and closing it costs more than a query over it. A socket is for one exchange
// at a time, and for a few in all: its port is what a forger of replies has to guess (RFC 5452).
#pragma once

#include <cstddef>
#include <memory>
#include <vector>

#include "socket/DatagramSocket.h"

namespace netro {

class DatagramPool {
 public:
  /// With `dated` the sockets tell when a reply came to this system.
  explicit DatagramPool(Notifier& notifier, bool dated = false)
      : notifier_(notifier), dated_(dated) {}
  DatagramPool(const DatagramPool&) = delete;
  DatagramPool& operator=(const DatagramPool&) = delete;

  /// What an exchange has of the pool while it runs. With the last one all sockets are closed.
  class Lease {
   public:
    explicit Lease(DatagramPool& pool);
    ~Lease();
    Lease(const Lease&) = delete;
    Lease& operator=(const Lease&) = delete;

    /// Takes a socket connected to the target, which tells `call` of what arrives. Returns the
    /// error number.
    std::int32_t Open(std::shared_ptr<CallState> call, const SocketAddress& target,
                      DatagramSocket::Filter wanted);
    bool IsOpen() const { return socket_ != nullptr; }
    DatagramSocket& Socket() { return *socket_; }
    /// Nothing more is to come for this exchange, so another one may have the socket.
    void HandOn();

   private:
    DatagramPool& pool_;
    std::unique_ptr<DatagramSocket> socket_;
  };

 private:
  Notifier& notifier_;
  const bool dated_;
  std::size_t running_ = 0;
  std::vector<std::unique_ptr<DatagramSocket>> idle_;  // not more than there are exchanges
};

}  // namespace netro
