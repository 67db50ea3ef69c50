// UDPCls. A call is a sequence of pauses in the message loop; a pause ends early when a reply is
// there only where that changes nothing but the time: after the last datagram and between two
// tests.
#include <netro/UDPCls.h>

#include <algorithm>

#include "platform/CallState.h"
#include "platform/ErrorNumbers.h"
#include "socket/DatagramSocket.h"
#include "socket/HostLookup.h"
#include "socket/SocketErrors.h"
#include "socket/SocketModule.h"
#include "socket/Wait.h"
#include "support/OnException.h"

namespace netro {
namespace {

using std::chrono::milliseconds;

constexpr std::size_t kLargestChunk = 4096;
constexpr milliseconds kSendPause(100);
constexpr long kSendSeconds = 60;
constexpr std::int32_t kPermissionDenied = 10013;
constexpr std::int32_t kBroadcast = -1;

std::span<const std::uint8_t> BytesOf(const std::string& text) {
  return {reinterpret_cast<const std::uint8_t*>(text.data()), text.size()};
}

// Callers have always got one byte behind the reply.
void AppendZero(Bytes& reply, std::int32_t error) {
  if (error == 0 && !reply.empty()) reply.push_back(0);
}

}  // namespace

UDPCls::UDPCls() : module_(SocketModule::ForThread()), call_(std::make_shared<CallState>()) {
  module_->ClearCancelFlag();
  module_->StartUp(counted_);
}

UDPCls::~UDPCls() {
  call_->Die();
  socket_.reset();
  if (counted_) module_->CleanUp();
}

// Every public call: refused inside another one, else under a mark of its own.
template <class Call>
auto UDPCls::Run(std::int32_t& lastErr, Call call)
    -> decltype(call(std::declval<const CancelMark&>())) {
  const BusyScope busy(call_);
  lastErr = busy.Refused() ? busy.Error() : 0;
  if (busy.Refused()) return {};
  try {
    return call(CancelMark(module_, call_));
  } catch (const std::bad_alloc&) {
    lastErr = kErrNoBuffers;
    return {};
  }
}

bool UDPCls::UPDConnect(std::int32_t& LastErr) {
  return Run(LastErr, [&](const CancelMark& mark) { return (LastErr = Open(mark)) == 0; });
}

bool UDPCls::UDPDisconnect(std::int32_t& LastErr) {
  return Run(LastErr, [&](const CancelMark&) {
    socket_.reset();
    return true;
  });
}

bool UDPCls::UDPSendString(const std::string& InData, std::int32_t& LastErr) {
  return Run(LastErr, [&](const CancelMark& mark) {
    return (LastErr = SendAllButLast(BytesOf(InData), mark)) == 0;
  });
}

bool UDPCls::UDPSendByteArr(const Bytes& InArray, std::int32_t& LastErr) {
  return Run(LastErr, [&](const CancelMark& mark) {
    return (LastErr = SendAllButLast(InArray, mark)) == 0;
  });
}

std::string UDPCls::UDPPollString(std::int32_t& LastErr) {
  return Run(LastErr, [&](const CancelMark& mark) {
    Bytes reply;
    LastErr = Poll(reply, mark);
    AppendZero(reply, LastErr);
    return std::string(reply.begin(), reply.end());
  });
}

std::string UDPCls::UDPQuery(const std::string& InData, std::int32_t& LastErr) {
  return Run(LastErr, [&](const CancelMark& mark) {
    Bytes reply;
    LastErr = Query(BytesOf(InData), reply, mark);
    return std::string(reply.begin(), reply.end());
  });
}

Bytes UDPCls::UDPQueryBinary(const Bytes& InData, std::int32_t& LastErr) {
  return Run(LastErr, [&](const CancelMark& mark) {
    Bytes reply;
    LastErr = Query(InData, reply, mark);
    return reply;
  });
}

void UDPCls::StopWaiting() { call_->Stop(module_->MessageLoop()); }

void UDPCls::Kill() { StopWaiting(); }

std::string UDPCls::TranslateErrorMsg(std::int32_t ErrorNr) const {
  return SocketErrorText(ErrorNr);
}

const std::string& UDPCls::DNSURL() const {
  return dnsURL_ ? *dnsURL_ : DefaultHostLookup().DefaultServers(CancelMark(module_, call_));
}

std::int32_t UDPCls::Open(const CancelMark& mark) {
  socket_.reset();
  if (port_ < 0 || port_ > 65535) return kErrInvalidArgument;
  const bool broadcast = url_ == "255.255.255.255";
  if (broadcast && !allowBroadcast_) return kPermissionDenied;
  const DatagramSocket::Options options{reuseAddr_, allowBroadcast_};
  SocketAddress target{IpAddress::V4(kBroadcast), port_};
  if (!broadcast) {
    const auto call = call_;
    const LookupAnswer host = ResolveHost(url_, {dnsURL_, preference_}, mark, TimePoint::max());
    if (!call->alive) return kErrCancelled;
    if (host.error != 0) return ConnectError(host.error);
    target.ip = host.First();
  }
  socket_ = std::make_unique<DatagramSocket>(module_->Notifications(), call_);
  const std::int32_t error = socket_->Open(options, target);
  if (error != 0) socket_.reset();
  return error;
}

// The upper bound of the array counts, as it always has: the last byte stays here.
std::int32_t UDPCls::SendAllButLast(std::span<const std::uint8_t> data, const CancelMark& mark) {
  if (socket_ == nullptr) return kErrNotConnected;
  return data.empty() ? 0 : Send(data.first(data.size() - 1), mark);
}

std::int32_t UDPCls::Send(std::span<const std::uint8_t> data, const CancelMark& mark) {
  const TimePoint deadline = SecondsFromNow(kSendSeconds);
  while (!data.empty()) {
    const auto chunk = data.first(std::min(data.size(), kLargestChunk));
    std::int32_t error = socket_->Send(chunk);
    if (error == kErrWouldBlock) {
      const auto call = call_;
      const DatagramSocket* socket = socket_.get();
      error = WaitError(
          WaitUntil(mark, deadline, [&] { return !call->alive || !socket->SendBlocked(); }));
      if (mark.Cancelled()) return kErrCancelled;  // also when an event has deleted the object
      if (error == 0) continue;
    }
    if (error != 0) return error;
    data = data.subspan(chunk.size());
    if (const std::int32_t ended = Pause(kSendPause, data.empty(), mark)) return ended;
  }
  return 0;
}

std::int32_t UDPCls::Pause(milliseconds time, bool untilReadable, const CancelMark& mark) {
  const auto call = call_;
  const WaitEnd end = WaitUntil(
      mark, Now() + time, [&] { return !call->alive || (untilReadable && socket_->Readable()); });
  return end == WaitEnd::Cancelled || mark.Cancelled() ? kErrCancelled : 0;
}

std::int32_t UDPCls::Poll(Bytes& reply, const CancelMark& mark) {
  if (socket_ == nullptr) return kErrNotConnected;
  // Deep inside other calls it is left out: what it delivers may make one more call.
  Loop& loop = module_->MessageLoop();
  if (!socket_->Readable() && loop.MayPumpAside()) loop.PumpMessages();
  for (std::int32_t attempt = 1;; ++attempt) {
    if (mark.Cancelled()) return kErrCancelled;
    if (socket_->Readable()) break;
    const bool last = attempt >= retryCount_;
    const milliseconds pause(std::max(0, retryPause_));
    if (retryCount_ > 1) {
      if (const std::int32_t ended = Pause(pause, !last, mark)) return ended;
    }
    if (last) return kErrTimedOut;
  }
  return socket_->Take(reply);
}

std::int32_t UDPCls::Query(std::span<const std::uint8_t> data, Bytes& reply,
                           const CancelMark& mark) {
  const auto close = [this, call = call_] {
    if (call->alive) socket_.reset();
  };
  const OnException closeThen(close);
  std::int32_t error = Open(mark);
  if (error == 0) error = SendAllButLast(data, mark);
  if (error == 0) error = Poll(reply, mark);
  close();
  AppendZero(reply, error);
  return error;
}

}  // namespace netro
