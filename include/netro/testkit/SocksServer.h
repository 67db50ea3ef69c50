// A SOCKS 4, 4a and 5 proxy (RFC 1928, RFC 1929) that follows a table of rules and really tunnels,
// always to 127.0.0.1 whatever host was asked for. It records the requests byte for byte and shares
// nothing with the library.
//
// Thread: the test's; connections run on the server's threads.
#pragma once

#include <netro/Export.h>
#include <netro/testkit/LoopbackServer.h>

#include <cstddef>
#include <cstdint>
#include <mutex>
#include <string>
#include <vector>

namespace netro::testkit {

/// How a SocksServer behaves.
struct SocksRules {
  /// Second byte of the reply to the version 4 request: 90 granted.
  std::uint8_t version4Reply = 90;
  /// The method chosen in version 5, offered or not: 0 none, 2 user/password, 255 refused.
  std::uint8_t method = 0;
  /// What method 2 accepts.
  std::string user{};
  std::string password{};
  /// Second byte of the reply to the version 5 request.
  std::uint8_t version5Reply = 0;
  /// Leaves all but the first two bytes of each reply out.
  bool shortReplies = false;
  /// Positions at which each reply is cut.
  std::vector<std::size_t> cuts{};
  /// Sent in one block with the reply that opens the tunnel.
  std::string early{};
  /// Instead of reply number n (from 0): nothing, and the end of the stream or silence.
  static constexpr std::size_t kNever = static_cast<std::size_t>(-1);
  std::size_t closeAt = kNever;
  std::size_t silentAt = kNever;
};

/// A SOCKS proxy of the versions 4, 4a and 5 (RFC 1928) that leads to ports of 127.0.0.1, whatever
/// the name.
class NETRO_EXPORT SocksServer {
 public:
  /// By default it lets everybody through.
  explicit SocksServer(SocksRules rules = {});

  /// Where it listens on 127.0.0.1.
  int Port() const { return server_.Port(); }
  /// Accepted so far.
  std::size_t Connections() const { return server_.Connections(); }
  /// The requests so far, in order over all connections: greeting, sub-negotiation, request.
  std::vector<std::string> Requests();

 private:
  // One connection's dialogue.
  struct Dialogue;
  bool Version4(Dialogue& dialogue);
  bool Version5(Dialogue& dialogue);
  bool Login(Dialogue& dialogue);
  bool Reply(Dialogue& dialogue, std::string bytes, bool opensTunnel = false);
  void Keep(Dialogue& dialogue);
  void Serve(Connection& connection);

  const SocksRules rules_;
  std::mutex mutex_;
  std::vector<std::string> requests_;  // guarded by mutex_
  LoopbackServer server_;              // last: its threads use the others
};

}  // namespace netro::testkit
