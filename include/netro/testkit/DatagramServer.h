// A datagram server that does what the test says: each datagram gets the replies that a function
// returns. It records every datagram.
//
// Thread: the test's; the function runs on the server's thread. Example:
//
//   DatagramServer server([](const std::string& datagram) -> DatagramServer::Replies {
//     return {{"forged", DatagramServer::From::kOtherPort}, {datagram}};
//   });
#pragma once

#include <netro/Export.h>

#include <atomic>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <utility>
#include <vector>

namespace netro::testkit {

/// A server that answers datagrams, also such as come from elsewhere.
class NETRO_EXPORT DatagramServer {
 public:
  /// Whose a reply seems to be: the server's, that of another port, or of the next address with the
  /// server's port.
  enum class From { kServer, kOtherPort, kOtherAddress };
  /// One datagram.
  struct Reply {
    /// Bytes, and who seems to send them.
    Reply(std::string reply, From sender = From::kServer)  // NOLINT: a reply is its bytes
        : bytes(std::move(reply)), from(sender) {}
    std::string bytes;  // all of it
    From from;          // whose it seems to be
  };
  /// Go out one after the other.
  using Replies = std::vector<Reply>;

  /// The replies to a datagram, in order; none is silence.
  using Answer = std::function<Replies(const std::string& datagram)>;

  /// Port 0 is a free one. Where a port may not be had, as low ones often may not, IsUp is false.
  explicit DatagramServer(Answer answer, int port = 0, std::uint32_t ip = 0x7F000001);
  ~DatagramServer();
  DatagramServer(const DatagramServer&) = delete;
  DatagramServer& operator=(const DatagramServer&) = delete;

  /// Whether it got its port.
  bool IsUp() const { return fd_ >= 0 && otherAddressFd_ >= 0; }
  /// Where it listens.
  int Port() const { return port_; }
  /// The address in dotted form.
  std::string Ip() const;
  /// Everything sent to the server before this call; the replies to it are sent.
  std::vector<std::string> Received();
  /// How many datagrams there are now; does not wait for what is on its way.
  std::size_t Count() const { return count_; }

 private:
  bool Bind(int port);
  void Loop();
  void TakeDatagram();
  void Send(const Reply& reply, const std::string& to);

  const Answer answer_;
  const std::uint32_t ip_;
  int port_ = 0;
  std::mutex mutex_;
  std::condition_variable changed_;
  std::vector<std::string> received_;  // guarded by mutex_
  std::size_t marks_ = 0;              // guarded by mutex_
  std::atomic<std::size_t> count_{0};
  int fd_ = -1;
  int otherPortFd_ = -1;
  int otherAddressFd_ = -1;
  int markFd_ = -1;  // its datagrams are marks, see Received
  int stopRead_ = -1;
  int stopWrite_ = -1;
  std::thread thread_;
};

/// A server on this port of an address of 127.0.0.0/8 that is nobody else's: the first free one
/// behind one that the process number chooses. None where the port may not be had.
NETRO_EXPORT std::unique_ptr<DatagramServer> ServeOnOwnAddress(const DatagramServer::Answer& answer,
                                                               int port);

}  // namespace netro::testkit
