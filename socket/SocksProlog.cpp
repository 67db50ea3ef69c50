// The SOCKS prolog of a connected socket.
//
// A dialogue of one request and one reply a step (SocksDialogue knows the messages). While it runs,
// WindowProc collects what arrives instead of raising events, and a close only ends the wait. Each
// step: send; wait until byte 1 of the reply is there, the proxy closed, SocksTimeout is over or
// the call was cancelled; go on or fail. Then:
//   - a positive reply may arrive in pieces, and its own length tells when it is whole; some proxies
//     send two bytes only, so two that stand alone for half a second are enough;
//   - what follows the last reply belongs to the tunnel and is delivered as DataArrival, and so is
//     a close that came during the prolog, both from the loop and not inside this call;
//   - every failure closes the socket.
#include <netro/SocketCls.h>

#include <algorithm>
#include <utility>

#include "platform/Address.h"
#include "platform/CallState.h"
#include "platform/ErrorNumbers.h"
#include "socket/HostLookup.h"
#include "socket/QueueHold.h"
#include "socket/SocketModule.h"
#include "socket/SocksDialogue.h"
#include "socket/Wait.h"
#include "support/OnException.h"

namespace netro {
namespace {

constexpr std::chrono::milliseconds kPauseWithinReply(500);

}  // namespace

bool SocketCls::Sock4Prolog(const std::string& Host, std::int32_t Port,
                            const std::string& ProxyUserName, bool ProxyUseRemoteDNS,
                            std::int32_t& LastErr) {
  SocksTarget target;
  target.host = Host;
  target.port = Port;
  target.user = ProxyUserName;
  return RunProlog(std::move(target), ProxyUseRemoteDNS, LastErr);
}

bool SocketCls::Socks5Prolog(bool ProxyUseRemoteDNS, bool UseAuth, const std::string& HostName,
                             std::int32_t Port, const std::string& ProxyUserName,
                             const std::string& ProxyPassword, std::int32_t& LastErr) {
  SocksTarget target;
  target.host = HostName;
  target.port = Port;
  target.user = ProxyUserName;
  target.password = ProxyPassword;
  target.version5 = true;
  target.offerPassword = UseAuth;
  return RunProlog(std::move(target), ProxyUseRemoteDNS, LastErr);
}

bool SocketCls::RunProlog(SocksTarget target, bool remoteDNS, std::int32_t& lastErr) {
  const BusyScope busy(call_);
  const CancelMark mark(module_, call_);
  const std::int32_t error =
      busy.Refused() ? busy.Error() : OpenTunnel(std::move(target), remoteDNS, mark);
  if (error != 0) lastErr = error;
  return error == 0;
}

std::int32_t SocketCls::OpenTunnel(SocksTarget target, bool remoteDNS, const CancelMark& mark) {
  const auto call = call_;
  const std::uint32_t connection = connection_;
  const QueueHold hold(*this);
  const auto close = [&] {
    prologInProgress_ = closeHeld_ = false;
    if (connection_ == connection) Close();  // else an event has put another one in its place
  };
  const OnException closeThen([&] {
    if (call->alive) close();
  });
  std::int32_t error = PrepareTarget(target, remoteDNS, mark);
  if (error == 0) {
    SocksDialogue dialogue(std::move(target));
    error = RunDialogue(dialogue, mark);
  }
  if (error == 0 || !call->alive) return error;
  close();
  lastSocketErr_ = error == kErrNoDnsEntries ? kErrHostNotFound : error;
  return error;
}

std::int32_t SocketCls::PrepareTarget(SocksTarget& target, bool remoteDNS, const CancelMark& mark) {
  target.resolveRemotely = remoteDNS;
  if (const std::int32_t error = SocksDialogue::Check(target)) return error;
  if (remoteDNS) {
    // A dotted address goes as a name, as it always has.
    const auto address = ParseAddress(target.host);
    if (!address || address->IsIPv4()) return 0;
    target.ip = *address;
    return target.version5 ? 0 : static_cast<std::int32_t>(kErrNoData);
  }
  const auto call = call_;
  const std::uint32_t connection = connection_;
  const LookupAnswer answer = Resolve(target.host, target.version5 ? preference_ : onlyIPv4, mark,
                                      SecondsFromNow(socksTimeout_));
  if (!call->alive) return kErrCancelled;
  if (connection_ != connection) return kErrNotConnected;
  target.ip = answer.First();
  return answer.error;
}

std::int32_t SocketCls::RunDialogue(SocksDialogue& dialogue, const CancelMark& mark) {
  const std::uint32_t connection = connection_;
  prologReply_.clear();
  closeHeld_ = state_ != sockConnected;  // the proxy may have hung up before it was asked
  prologInProgress_ = true;
  module_->Notifications().SetAwaited(socketHandle_);
  while (!dialogue.IsOpen()) {
    const Bytes request = dialogue.Request();
    std::int32_t error = SendAll(request, mark, SecondsFromNow(kStreamSendSeconds));
    // A proxy that has hung up is an empty reply, also when the system noticed it while sending.
    if (error == 0 || error == kErrConnectionReset) error = AwaitReply(dialogue, mark, connection);
    if (error != 0) return error;
    const std::size_t used = std::min(prologReply_.size(), dialogue.ReplyLength(prologReply_));
    error = dialogue.Take(prologReply_);
    if (error != 0) return error;
    prologReply_.erase(prologReply_.begin(), prologReply_.begin() + static_cast<long>(used));
  }
  prologInProgress_ = false;
  early_ = std::exchange(prologReply_, {});
  if (!early_.empty() || closeHeld_) {
    module_->Notifications().Renew(socketHandle_);
    module_->MessageLoop().KeepReadable();
  }
  return 0;
}

std::int32_t SocketCls::AwaitReply(const SocksDialogue& dialogue, const CancelMark& mark,
                                   std::uint32_t connection) {
  const auto call = call_;
  const TimePoint deadline = SecondsFromNow(socksTimeout_);
  const auto ended = [&] { return !call->alive || closeHeld_ || connection_ != connection; };
  const WaitEnd end =
      WaitUntil(mark, deadline, [&] { return ended() || prologReply_.size() >= 2; });
  if (end != WaitEnd::Done) return WaitError(end);
  for (;;) {
    if (!call->alive) return kErrCancelled;
    if (connection_ != connection) return kErrNotConnected;  // disconnected by an event
    const std::size_t had = prologReply_.size();
    if (!dialogue.Accepts(prologReply_) || had >= dialogue.ReplyLength(prologReply_)) return 0;
    const bool mayBeAll = had == SocksDialogue::kShortestReply;
    if (closeHeld_ && !mayBeAll) prologReply_.clear();  // cut off: no reply
    if (closeHeld_) return 0;
    const TimePoint until = mayBeAll ? std::min(deadline, Now() + kPauseWithinReply) : deadline;
    const WaitEnd rest =
        WaitUntil(mark, until, [&] { return ended() || prologReply_.size() > had; });
    if (rest == WaitEnd::TimedOut && mayBeAll) return 0;
    if (rest != WaitEnd::Done) return WaitError(rest);
  }
}

}  // namespace netro
