#include "socket/OpenConnection.h"

#include <netro/ProxySettings.h>
#include <netro/SocketCls.h>

#include <algorithm>
#include <iterator>
#include <utility>

#include "platform/CallState.h"
#include "platform/ErrorNumbers.h"
#include "socket/SocksDialogue.h"

namespace netro {

bool PlanProxy(const ProxyValues& proxy, ConnectionPlan& plan) {
  constexpr SocksKind kKinds[] = {SocksKind::None, SocksKind::Socks4, SocksKind::Socks5NoAuth,
                                  SocksKind::Socks5Auth};
  if (proxy.type < 0 || proxy.type >= static_cast<std::int32_t>(std::size(kKinds))) return false;
  plan.socks = kKinds[proxy.type];
  plan.proxyHost = proxy.url;
  plan.proxyPort = proxy.port;
  plan.proxyUser = proxy.user;
  plan.proxyPassword = proxy.password;
  plan.remoteDNS = proxy.useRemoteDNS;
  return plan.socks == SocksKind::None ||
         (!proxy.url.empty() && proxy.port >= 1 && proxy.port <= 65535);
}

// The socket knows the trace as long as the call runs.
class SocketOwner::Traced {
 public:
  Traced(SocketCls& socket, const ConnectTrace& trace) : socket_(socket), call_(socket.call_) {
    if (trace) socket_.trace_ = &trace;
  }
  ~Traced() {
    if (call_->alive) socket_.trace_ = nullptr;
  }
  Traced(const Traced&) = delete;
  Traced& operator=(const Traced&) = delete;

 private:
  SocketCls& socket_;
  const std::shared_ptr<CallState> call_;
};

std::size_t SocketOwner::SendLeft(const SocketCls& socket) { return socket.sendLeft_; }

void SocketOwner::Adopt(SocketCls& socket, const CancelMark& mark) {
  socket.owner_ = mark.Object();
  socket.module_->Notifications().SetAwaited(socket.socketHandle_);
}

void SocketOwner::Release(SocketCls& socket) { socket.owner_ = nullptr; }

std::int32_t SocketOwner::Connect(SocketCls& socket, const ConnectionPlan& plan,
                                  const CancelMark& mark) {
  const bool direct = plan.socks == SocksKind::None;
  const auto call = socket.call_;
  socket.dnsURL_ = plan.lookup.servers;
  socket.preference_ = plan.lookup.preference;
  const TimePoint deadline = std::min(MillisecondsFromNow(plan.wait), plan.limit);
  const Traced traced(socket, plan.trace);
  const bool started = socket.ConnectBy(direct ? plan.host : plan.proxyHost,
                                        direct ? plan.port : plan.proxyPort, mark, deadline);
  if (!call->alive) return kErrCancelled;
  if (!started) return socket.lastSocketErr_;
  socket.module_->Notifications().SetAwaited(socket.socketHandle_);
  const WaitEnd end =
      WaitUntil(mark, deadline, [&] { return !call->alive || socket.state_ != sockConnecting; });
  if (!call->alive) return kErrCancelled;
  if (end != WaitEnd::Done) {
    socket.Fail(WaitError(end));
    return socket.lastSocketErr_;
  }
  // A peer may have closed again already; the owner has seen what it sent before.
  const bool open = socket.state_ == sockConnected || socket.socketHandle_ != 0;
  if (open) return 0;
  return socket.lastSocketErr_ != 0 ? socket.lastSocketErr_ : kErrNotConnected;
}

std::int32_t SocketOwner::RunProlog(SocketCls& socket, const ConnectionPlan& plan,
                                    const CancelMark& mark) {
  if (plan.socks == SocksKind::None) return 0;
  SocksTarget target;
  target.host = plan.host;
  target.port = plan.port;
  target.user = plan.proxyUser;
  target.password = plan.proxyPassword;
  target.resolveRemotely = plan.remoteDNS;
  target.version5 = plan.socks != SocksKind::Socks4;
  target.offerPassword = plan.socks == SocksKind::Socks5Auth;
  socket.SocksTimeout(WholeSeconds(plan.wait));
  const std::int32_t error = socket.OpenTunnel(std::move(target), plan.remoteDNS, mark);
  return error == kErrNoDnsEntries ? kErrHostNotFound : error;
}

std::int32_t SocketOwner::StartTls(SocketCls& socket, const std::string& host,
                                   std::shared_ptr<TlsProvider> provider, const CancelMark& mark,
                                   TimePoint deadline) {
  return socket.Protect(host, std::move(provider), mark, deadline);
}

std::int32_t SocketOwner::Send(SocketCls& socket, std::string_view data, const CancelMark& mark) {
  return Send(socket, data, mark, SecondsFromNow(kStreamSendSeconds));
}

std::int32_t SocketOwner::Send(SocketCls& socket, std::string_view data, const CancelMark& mark,
                               TimePoint deadline) {
  const auto bytes = reinterpret_cast<const std::uint8_t*>(data.data());
  return socket.SendAll({bytes, data.size()}, mark, deadline);
}

std::int32_t SocketOwner::SendAtOnce(SocketCls& socket, std::string_view data) {
  std::int32_t error = 0;
  const auto bytes = reinterpret_cast<const std::uint8_t*>(data.data());
  const auto sent = socket.Transmit({bytes, data.size()}, error);
  if (sent < 0) return error;
  const bool all = static_cast<std::size_t>(sent) == data.size() && !socket.ProtectedUnsent();
  return all ? 0 : kErrWouldBlock;
}

const std::shared_ptr<SocketModule>& SocketOwner::Module(const SocketCls& socket) {
  return socket.module_;
}

std::int32_t SocketOwner::CloseError(const SocketCls& socket) { return socket.closeError_; }

}  // namespace netro
