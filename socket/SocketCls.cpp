// SocketCls: life, connecting, listening, accepting, closing, and the entry for notifications.
#include <netro/SocketCls.h>

#include <algorithm>
#include <cstdlib>
#include <new>
#include <utility>

#include "platform/CallState.h"
#include "platform/ErrorNumbers.h"
#include "platform/Sockets.h"
#include "socket/ConnectRace.h"
#include "socket/HostLookup.h"
#include "socket/QueueHold.h"
#include "socket/SendQueue.h"
#include "socket/SocketErrors.h"
#include "socket/SocketModule.h"
#include "socket/TlsStream.h"
#include "socket/Wait.h"
#include "support/OnException.h"

namespace netro {
namespace {

constexpr std::size_t kLargestBlock = 16'000;
constexpr int kBacklog = 5;
constexpr int kAcceptPauseMilliseconds = 100;

std::string TextOf(const std::string& host, const LookupAnswer& answer) {
  std::string text = host;
  if (answer.error != 0) return text + ": " + SocketErrorText(ConnectError(answer.error));
  for (const IpAddress& address : answer.addresses) text += ' ' + FormatAddress(address);
  return text;
}

}  // namespace

SocketCls::SocketCls()
    : module_(SocketModule::ForThread()),
      call_(std::make_shared<CallState>()),
      queue_(std::make_unique<SendQueue>()) {
  module_->Register(*this);
  module_->ClearCancelFlag();
  lastSocketErr_ = StartUp();
}

SocketCls::~SocketCls() {
  call_->Die();
  Close();
  module_->Unregister(*this);
  for (; startUps_ > 0; --startUps_) module_->CleanUp();
}

std::int32_t SocketCls::StartUp() {
  bool counted = false;
  const std::int32_t error = module_->StartUp(counted);
  if (counted) ++startUps_;
  return error;
}

bool SocketCls::Fail(std::int32_t error) {
  Close();
  lastSocketErr_ = error;
  return false;
}

// For the calls that wait for this socket, its own and its owner's.
void SocketCls::Changed() {
  call_->Changed();
  if (owner_ != nullptr) owner_->Changed();
}

void SocketCls::Attach(std::int32_t handle) {
  socketHandle_ = handle;
  ++connection_;
  closeError_ = 0;
  tls_.reset();
  module_->SetOwner(handle, this);
}

void SocketCls::Close() {
  race_.reset();
  if (socketHandle_ != 0) {
    if (tls_ != nullptr) {
      tls_->Leave(module_->Notifications(), socketHandle_, queue_->Empty() && hold_ == nullptr);
    }
    module_->Notifications().Unwatch(socketHandle_);
    module_->SetOwner(socketHandle_, nullptr);
    CloseSocket(socketHandle_);
    ++connection_;
  }
  socketHandle_ = 0;
  state_ = sockClosed;
  localIP_.clear();
  remoteIP_.clear();
  localPort_ = remotePort_ = 0;
  datagrams_ = false;
  early_.clear();
  queue_->Clear();
  closeWhenSent_ = false;
  if (hold_ != nullptr) hold_->End();
  closeHeld_ = prologInProgress_;  // ends the wait of a prolog
  Changed();
}

// Only texts: a connection lives without them where memory has run out.
void SocketCls::RefreshAddresses() try {
  const SocketAddress local = LocalAddress(socketHandle_);
  const SocketAddress peer = PeerAddress(socketHandle_);
  localIP_ = local.port == 0 ? std::string() : FormatAddress(local.ip);
  localPort_ = local.port;
  remoteIP_ = peer.port == 0 ? std::string() : FormatAddress(peer.ip);
  remotePort_ = peer.port;
} catch (const std::bad_alloc&) {
  remoteIP_.clear();
}

void SocketCls::SocketIsBusy(bool value) {
  const LoopUse::Scope use(call_->use);
  if (use.Refused()) return;
  const bool resumed = socketIsBusy_ && !value;
  socketIsBusy_ = value;
  if (resumed && socketHandle_ != 0 && state_ != sockConnecting) {
    module_->Notifications().Renew(socketHandle_);
    module_->MessageLoop().KeepReadable();
  }
}

void SocketCls::NoDelay(bool value) {
  noDelay_ = value;
  // A listening socket would hand it down to all that it accepts.
  if (socketHandle_ != 0 && state_ != sockListening) SetNoDelay(socketHandle_, value);
}

bool SocketCls::Connect(const std::string& Host, std::int32_t Port) {
  const auto call = call_;
  const LoopUse::Scope use(call->use);
  if (use.Refused()) return false;
  // A SendData below this call has lost its connection and ends when it is back.
  if (state_ == sockClosed && hold_ != nullptr && hold_->IsSend()) hold_->End();
  const BusyScope busy(call_);
  if (busy.Refused()) {
    lastSocketErr_ = kErrInProgress;
    return false;
  }
  try {
    return ConnectBy(Host, Port, CancelMark(module_, call_), TimePoint::max());
  } catch (const std::bad_alloc&) {
    return call->alive && Fail(kErrNoBuffers);
  }
}

bool SocketCls::ConnectBy(std::string host, std::int32_t port, const CancelMark& mark,
                          Deadline deadline) {
  Close();
  closedByClient_ = false;
  if (mark.Cancelled()) return Fail(kErrCancelled);
  if (mark.Expired(deadline)) return Fail(kErrTimedOut);
  owner_ = mark.Object() != call_ ? mark.Object() : nullptr;
  state_ = sockConnecting;
  std::int32_t handle = 0;
  if (const std::int32_t error = CreateSocket(SocketKind::Stream, AddressFamily::IPv4, handle))
    return Fail(error);
  Attach(handle);
  if (const std::int32_t error = StartUp()) return Fail(error);
  if (port < 0 || port > 65535) return Fail(kErrInvalidArgument);

  const auto call = call_;
  const std::uint32_t connection = connection_;
  const OnException close([&] {
    if (call->alive && connection_ == connection) Close();
  });
  LookupAnswer answer = Resolve(host, preference_, mark, deadline);
  if (!call->alive) return false;
  if (trace_ != nullptr) (*trace_)("lookup", TextOf(host, answer));
  if (connection_ != connection) {  // closed while looking up
    lastSocketErr_ = kErrCancelled;
    return false;
  }
  if (answer.error != 0) return Fail(ConnectError(answer.error));
  race_ = std::make_unique<ConnectRace>(*this, std::move(answer), port, std::move(host),
                                        LookupSettings{dnsURL_});
  const std::int32_t error = race_->Start();
  return error == 0 || Fail(error);
}

LookupAnswer SocketCls::Resolve(const std::string& host, AddressPreferenceEnum preference,
                                const CancelMark& mark, Deadline deadline) {
  const auto call = call_;
  LookupAnswer answer = ResolveHost(host, {dnsURL_, preference}, mark, deadline);
  if (call->alive) SetLookupResult(answer.error);
  return answer;
}

bool SocketCls::Listen(const std::string& FeedLocalIp) try {
  const LoopUse::Scope use(call_->use);
  if (use.Refused()) return false;
  const std::int32_t port = localPort_;
  const std::string localIp = FeedLocalIp;  // may be a property that Close clears
  Close();
  closedByClient_ = false;
  if (const std::int32_t error = StartUp()) return Fail(error);
  std::int32_t handle = 0;
  const SocketKind kind = useUDP_ ? SocketKind::Datagram : SocketKind::Listener;
  const auto ip = localIp.empty() ? IpAddress::V4(0) : ParseAddress(localIp);
  const AddressFamily family = ip ? ip->Family() : AddressFamily::IPv4;
  if (const std::int32_t error = CreateSocket(kind, family, handle)) return Fail(error);
  Attach(handle);
  datagrams_ = useUDP_;
  if (!ip || port < 0 || port > 65535) return Fail(kErrInvalidArgument);
  if (const std::int32_t error = StartListening({*ip, port})) return Fail(error);
  RefreshAddresses();
  state_ = sockListening;
  return true;
} catch (const std::bad_alloc&) {
  return Fail(kErrNoBuffers);
}

std::int32_t SocketCls::StartListening(const SocketAddress& address) {
  const SocketKind kind = useUDP_ ? SocketKind::Datagram : SocketKind::Listener;
  Notifier& notifier = module_->Notifications();
  const bool broadcast = useUDP_ ? enableBroadcast_ : allowBroadcast_;
  std::int32_t error = reuseAddr_ ? SetReuseAddress(socketHandle_) : 0;
  if (error == 0 && broadcast) error = SetBroadcast(socketHandle_);
  if (error == 0) error = BindSocket(socketHandle_, address);
  if (error == 0) error = notifier.Watch(socketHandle_, kind, *module_);
  if (error == 0 && !useUDP_) error = notifier.Listen(socketHandle_, kBacklog);
  return error;
}

void SocketCls::Accept(std::int32_t RequestID) try {
  const LoopUse::Scope use(call_->use);
  if (use.Refused()) return;
  if (socketHandle_ != 0) Close();
  std::int32_t error = StartUp();
  const std::int32_t handle = error == 0 ? module_->Notifications().Accept(RequestID, error) : 0;
  if (error != 0) {
    lastSocketErr_ = error;
    if (error == kErrTooManyFiles || error == kErrNoBuffers) RequestAgainLater(RequestID);
    return;
  }
  closedByClient_ = false;
  Attach(handle);
  if (noDelay_) SetNoDelay(handle, true);
  RefreshAddresses();
  state_ = sockConnected;
} catch (const std::bad_alloc&) {
  Fail(kErrNoBuffers);
}

// Without descriptors the listener would notify for ever; it does so again after a pause.
void SocketCls::RequestAgainLater(std::int32_t listener) {
  const auto timer = std::make_shared<std::int32_t>(0);
  const std::weak_ptr<SocketModule> weak = module_;  // the module owns the timer
  *timer = module_->MessageLoop().SetTimer(kAcceptPauseMilliseconds, [weak, listener, timer] {
    const auto module = weak.lock();
    if (module == nullptr) return;
    module->MessageLoop().KillTimer(*timer);
    module->Notifications().Renew(listener);
  });
}

void SocketCls::Disconnect() {
  const LoopUse::Scope use(call_->use);
  if (!use.Refused()) Close();
}

void SocketCls::RemoveSocket() {
  const LoopUse::Scope use(call_->use);
  if (use.Refused()) return;
  race_.reset();
  module_->Unregister(*this);
}

void SocketCls::Kill() {
  ++call_->stops;
  module_->Kill();
}

void SocketCls::StopWaiting() { call_->Stop(module_->MessageLoop()); }

std::string SocketCls::LastSocketErrMsg() const {
  const bool known = tls_ != nullptr && tls_->Session().Error() == lastSocketErr_;
  const std::string detailed = known ? tls_->Session().ErrorText() : std::string();
  return detailed.empty() ? SocketErrorText(lastSocketErr_) : detailed;
}

void SocketCls::PeerClosed(std::int32_t error) {
  if (tls_ != nullptr && tls_->Ended()) return;
  closeError_ = error;
  const bool held = !early_.empty() || (tls_ != nullptr && tls_->HasInput());
  if (held) {
    closeHeld_ = true;
  } else if (tls_ != nullptr) {
    EndProtected();
  } else {
    WindowProc(32);
  }
}

void SocketCls::DeliverEarly() {
  const auto call = call_;
  const std::uint32_t connection = connection_;
  while (!prologInProgress_ && !early_.empty() && !socketIsBusy_) {
    const auto end = early_.begin() + static_cast<long>(std::min(early_.size(), kLargestBlock));
    const Bytes block(early_.begin(), end);
    early_.erase(early_.begin(), end);
    WindowProc(1, block);
    if (!call->alive || connection_ != connection) return;
  }
  if (tls_ != nullptr) return;  // the close is told behind the last plaintext
  if (!prologInProgress_ && early_.empty() && std::exchange(closeHeld_, false)) WindowProc(32);
}

void SocketCls::WindowProc(std::int32_t WSAEvent, const std::string& Data) {
  WindowProc(WSAEvent, Bytes(Data.begin(), Data.end()));
}

void SocketCls::WindowProc(std::int32_t WSAEvent, const Bytes& Data) {
  if (prologInProgress_) {
    if (WSAEvent == 1) prologReply_.insert(prologReply_.end(), Data.begin(), Data.end());
    if (WSAEvent == 32 || WSAEvent == 999) closeHeld_ = true;
    return;
  }
  switch (WSAEvent) {
    case 1:
      return RaiseDataArrival(Data);
    case 2:
      if (SendQueued() && events_ != nullptr) events_->SendComplete();
      return;
    case 8:
      return RaiseConnectionRequest();
    case 16:
      state_ = sockConnected;
      RefreshAddresses();
      if (events_ != nullptr) events_->Connect();
      return;
    case 32:
      state_ = sockClosed;
      closedByClient_ = true;
      if (closeWhenSent_ && UnsentBytes() == 0 && hold_ == nullptr) Close();
      if (events_ != nullptr) events_->Closed();
      return;
    case 999:
      return RaiseError(std::string(Data.begin(), Data.end()));
    default:
      return;
  }
}

void SocketCls::RaiseDataArrival(const Bytes& data) {
  std::string from;  // a copy: the object may go before the handler is done with it
  try {
    from = remoteIP_;
  } catch (const std::bad_alloc&) {  // the data counts for more
  }
  if (events_ != nullptr) events_->DataArrival(data, from);
}

// A connection that an exception has kept from being taken over is announced again.
void SocketCls::RaiseConnectionRequest() {
  RefreshAddresses();
  const auto call = call_;
  const std::uint32_t connection = connection_;
  const OnException again([&] {
    if (call->alive && connection_ == connection) module_->Notifications().Renew(socketHandle_);
  });
  if (events_ != nullptr) events_->ConnectionRequest(socketHandle_);
}

void SocketCls::RaiseError(const std::string& number) {
  lastSocketErr_ = static_cast<std::int32_t>(std::strtol(number.c_str(), nullptr, 10));
  state_ = sockClosed;
  if (events_ != nullptr) events_->Error(lastSocketErr_, SocketErrorText(lastSocketErr_));
}

}  // namespace netro
