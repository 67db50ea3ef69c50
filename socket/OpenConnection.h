// What a protocol class may do with the socket it owns beyond the public methods: open a
// connection, directly or through a SOCKS proxy, within its own time-out and under its own
// cancellation.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

#include "socket/ConnectTrace.h"
#include "socket/HostLookup.h"
#include "socket/Wait.h"

namespace netro {

class SocketCls;
class TlsProvider;
struct ProxyValues;

enum class SocksKind { None, Socks4, Socks5NoAuth, Socks5Auth };

/// Where to, through what, and how long each wait may take.
struct ConnectionPlan {
  std::string host;
  std::int32_t port = 0;
  SocksKind socks = SocksKind::None;
  std::string proxyHost;
  std::int32_t proxyPort = 0;
  std::string proxyUser;
  std::string proxyPassword;
  bool remoteDNS = false;
  std::chrono::milliseconds wait = std::chrono::seconds(30);
  TimePoint limit = TimePoint::max();  // of connecting and waiting together
  LookupSettings lookup;
  ConnectTrace trace;  // may be empty
};

/// Puts the proxy settings of a protocol class into a plan. False when the type is none of the
/// kinds or the proxy has no name or no port.
bool PlanProxy(const ProxyValues& proxy, ConnectionPlan& plan);

class SocketOwner {
 public:
  /// Connects to the host, or to the proxy. Returns 0 or the error number: 9999, 10002, the
  /// socket's. On failure the socket is closed. The socket may be gone after 9999.
  static std::int32_t Connect(SocketCls& socket, const ConnectionPlan& plan,
                              const CancelMark& mark);
  /// Runs the plan's SOCKS prolog on the connected socket; nothing to do without one.
  static std::int32_t RunProlog(SocketCls& socket, const ConnectionPlan& plan,
                                const CancelMark& mark);
  /// Protects the connected socket, see SocketCls::StartTls, whole until the deadline. Returns 0 or
  /// the error number: 9999, 10002, one of TlsError ...; the socket is closed then, and its
  /// LastSocketErrMsg has the details. The socket may be gone after 9999. Who has had an answer of
  /// the peer's before must itself refuse bytes that stood behind it in the same block.
  static std::int32_t StartTls(SocketCls& socket, const std::string& host,
                               std::shared_ptr<TlsProvider> provider, const CancelMark& mark,
                               TimePoint deadline);
  /// SendData under the owner's cancellation, and with its own limit where it has one.
  static std::int32_t Send(SocketCls& socket, std::string_view data, const CancelMark& mark);
  static std::int32_t Send(SocketCls& socket, std::string_view data, const CancelMark& mark,
                           TimePoint deadline);

  /// Sends a few bytes without waiting, from inside an event for example. Returns the error number:
  /// 10035 when the system has no room for them all.
  static std::int32_t SendAtOnce(SocketCls& socket, std::string_view data);

  /// What a running Send has not got rid of.
  static std::size_t SendLeft(const SocketCls& socket);

  /// Makes an open connection that nobody uses one of the marked object's, whose calls it wakes.
  static void Adopt(SocketCls& socket, const CancelMark& mark);
  /// The other way round.
  static void Release(SocketCls& socket);

  static const std::shared_ptr<SocketModule>& Module(const SocketCls& socket);
  /// How the peer ended the connection: 0 for an orderly close, else the system's number. With TLS
  /// only a closing alert is orderly; without it 10054, or what was wrong with the data (TlsError).
  static std::int32_t CloseError(const SocketCls& socket);

 private:
  class Traced;
};

}  // namespace netro
