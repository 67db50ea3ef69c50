#include "socket/ConnectRace.h"

#include <netro/SocketCls.h>

#include <algorithm>
#include <utility>

#include "platform/CallState.h"
#include "platform/ErrorNumbers.h"
#include "platform/Sockets.h"
#include "socket/SocketErrors.h"
#include "socket/SocketModule.h"
#include "socket/Wait.h"

namespace netro {
namespace {

constexpr std::int32_t kNextAttempt = 250;   // milliseconds
constexpr std::int32_t kNextFamily = 2'000;  // a connection that works is not this slow
constexpr std::chrono::seconds kLookupTime(2);

bool IsShortage(std::int32_t error) { return error == kErrTooManyFiles || error == kErrNoBuffers; }

}  // namespace

ConnectRace::ConnectRace(SocketCls& socket, LookupAnswer answer, std::int32_t port,
                         std::string host, LookupSettings settings)
    : socket_(socket),
      addresses_(std::move(answer.addresses)),
      port_(port),
      settings_(std::move(settings)) {
  settings_.preference = onlyIPv6;
  if (answer.mayHaveIPv6) host_ = std::move(host);
}

ConnectRace::~ConnectRace() {
  StopTimer();
  if (call_ != nullptr) call_->Die();
  while (!running_.empty()) Forget(running_.back());
}

std::int32_t ConnectRace::Start() { return GoOn() ? 0 : error_; }

void ConnectRace::Won(std::int32_t handle) {
  std::erase(running_, handle);
  if (socket_.socketHandle_ != handle) Forget(socket_.socketHandle_);
  socket_.socketHandle_ = handle;
  if (socket_.noDelay_) SetNoDelay(handle, true);
  if (socket_.owner_ != nullptr) socket_.module_->Notifications().SetAwaited(handle);
}

// The socket keeps the handle of a failed attempt until there is another one: it is connecting.
bool ConnectRace::Lost(std::int32_t handle, std::int32_t error) {
  error_ = error;
  TraceFailure();
  std::erase(running_, handle);
  if (socket_.socketHandle_ != handle) Forget(handle);
  StopTimer();
  return GoOn();
}

// False when nothing is under way any more and nothing is left to try.
bool ConnectRace::GoOn() {
  if (addresses_.empty()) error_ = kErrNoData;
  while (next_ < addresses_.size()) {
    error_ = Attempt(addresses_[next_++]);
    if (IsShortage(error_) && !running_.empty()) {  // those may give theirs back
      --next_;
      SetTimer(kNextAttempt);
      return true;
    }
    if (error_ != 0) {
      TraceFailure();
      continue;
    }
    const bool more = next_ < addresses_.size();
    if (more || !host_.empty()) SetTimer(more ? kNextAttempt : kNextFamily);
    return true;
  }
  return !running_.empty() || call_ != nullptr || (!host_.empty() && AskForMore());
}

std::int32_t ConnectRace::Attempt(const IpAddress& address) {
  const bool current = running_.empty();
  std::int32_t handle = 0;
  if (fresh_ && address.IsIPv4()) {
    handle = socket_.socketHandle_;
  } else {
    // What stands there has failed or cannot be used; its descriptor may be the last one.
    if (current) Forget(socket_.socketHandle_);
    const std::int32_t error = CreateSocket(SocketKind::Stream, address.Family(), handle);
    if (error != 0) return error;
  }
  fresh_ = false;
  running_.push_back(handle);
  socket_.module_->SetOwner(handle, &socket_);
  if (const std::int32_t error = Connect(handle, address)) {
    std::erase(running_, handle);
    if (handle != socket_.socketHandle_) Forget(handle);
    return error;
  }
  if (!current) return 0;
  socket_.socketHandle_ = handle;
  socket_.RefreshAddresses();
  return 0;
}

// An error of any kind means "under way", and the outcome is a notification; any other result, an
// immediate success included, counts as a failure of that number.
std::int32_t ConnectRace::Connect(std::int32_t handle, const IpAddress& address) {
  if (socket_.trace_ != nullptr) {
    (*socket_.trace_)("attempt", FormatEndpoint(FormatAddress(address), port_));
  }
  Notifier& notifier = socket_.module_->Notifications();
  if (const std::int32_t error = notifier.Watch(handle, SocketKind::Stream, *socket_.module_)) {
    return error;
  }
  if (socket_.noDelay_) SetNoDelay(handle, true);
  SetLingerOff(handle);
  const std::int32_t result = notifier.Connect(handle, {address, port_});
  return result == kSocketError ? 0 : result;
}

void ConnectRace::TraceFailure() const {
  if (socket_.trace_ != nullptr) (*socket_.trace_)("failed", SocketErrorText(error_));
}

void ConnectRace::SetTimer(std::int32_t milliseconds) {
  StopTimer();
  timer_ = socket_.module_->MessageLoop().SetTimer(milliseconds, [this] { TimeIsUp(); });
}

void ConnectRace::StopTimer() {
  if (timer_ != 0) socket_.module_->MessageLoop().KillTimer(std::exchange(timer_, 0));
}

void ConnectRace::TimeIsUp() {
  StopTimer();
  if (next_ == addresses_.size() && !host_.empty()) {
    AskForMore();
  } else {
    GoOn();
  }
}

// The lookup waits, and nobody may be there to wait for it: a task is.
bool ConnectRace::AskForMore() {
  call_ = std::make_shared<CallState>();
  const auto ask = [this, call = call_, module = socket_.module_, host = std::exchange(host_, {}),
                    settings = settings_] {
    if (!call->alive) return;
    const CancelMark mark(module, call);
    LookupAnswer answer = DefaultHostLookup().Lookup(host, settings, mark, Now() + kLookupTime);
    // What comes of it may raise an event, which the loop does.
    module->MessageLoop().PostTask([this, call, answer = std::move(answer)] {
      if (call->alive) TakeMore(answer);
    });
  };
  const Task task = socket_.module_->MessageLoop().StartTask(ask, Task::UsualStack);
  if (task.Error() != 0) call_ = nullptr;
  return call_ != nullptr;
}

void ConnectRace::TakeMore(const LookupAnswer& answer) {
  call_ = nullptr;
  addresses_.insert(addresses_.end(), answer.addresses.begin(), answer.addresses.end());
  if (GoOn()) return;
  const std::shared_ptr<SocketModule> module = socket_.module_;
  module->ConnectFailed(socket_, error_);  // this object ends there
}

void ConnectRace::Forget(std::int32_t handle) {
  if (handle == 0) return;
  std::erase(running_, handle);
  socket_.module_->Notifications().Unwatch(handle);
  socket_.module_->SetOwner(handle, nullptr);
  CloseSocket(handle);
  if (socket_.socketHandle_ == handle) socket_.socketHandle_ = 0;
}

}  // namespace netro
