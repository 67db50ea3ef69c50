// A thread of its own, the post, sends all requests, since the system calls a function on the
// thread that has sent one when it has been answered: this notes the moment, and rings. A
// notification of a socket that is good for nothing else, the bell, hands the answers out on the
// loop's thread, in turn with all others. (Waits of the system's thread pool for an event each end
// the program under wine 8.)
//
// A request that nobody waits for any more stays with the system to the end of its time, and its
// buffers with it.
#include "platform/windows/EchoCalls.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <cstring>
#include <mutex>
#include <new>
#include <optional>
#include <utility>
#include <vector>

#include "platform/ErrorNumbers.h"
#include "platform/windows/Window.h"

namespace netro {
namespace {

using std::chrono::steady_clock;

constexpr std::chrono::milliseconds kMargin(1000);  // the owner gives up before
constexpr std::size_t kExtra = 64;   // the system's own, behind a reply
constexpr int kCallsPerTurn = 64;
constexpr std::uint8_t kUsualHops = 128;

std::int32_t StatusOf(DWORD error) {
  if (error >= kIpNoNetwork && error <= kIpGeneralFailure) return static_cast<std::int32_t>(error);
  return EchoSendStatus(SocketErrorNumber(static_cast<int>(error)));
}

// As the system's call lays it out; not all headers have it.
struct Icmp6Reply {
  std::uint16_t port;
  std::uint8_t flow[4];
  std::uint8_t address[16];
  std::uint8_t scope[4];
  std::uint32_t status;
  std::uint32_t roundTrip;
};
static_assert(offsetof(Icmp6Reply, status) == 28);

struct MessageKind {
  std::int32_t status;
  std::int32_t v4Type, v4Code;
  std::int32_t v6Type, v6Code;
};

// The system tells the status only; the message that it stands for.
constexpr MessageKind kKinds[] = {
    {kIpSuccess, 0, 0, 129, 0},
    {kIpNoNetwork, 3, 0, 1, 0},
    {kIpNoHost, 3, 1, 1, 3},
    {kIpNoProtocol, 3, 2, 4, 1},
    {kIpNoPort, 3, 3, 1, 4},
    {kIpTooBig, 3, 4, 2, 0},
    {kIpTtlExpired, 11, 0, 3, 0},
    {kIpReassemblyExpired, 11, 1, 3, 1},
    {kIpBadRoute, 3, 5, 1, 0},
    {kIpSourceQuench, 4, 0, -1, -1},
    {kIpParameterProblem, 12, 0, 4, 0},
};

void AddMessage(EchoOutcome& outcome, AddressFamily family) {
  const auto* const found = std::ranges::find(kKinds, outcome.status, &MessageKind::status);
  if (found == std::end(kKinds) || outcome.from.IsNone()) return;
  const bool v6 = family == AddressFamily::IPv6;
  outcome.icmpType = v6 ? found->v6Type : found->v4Type;
  outcome.icmpCode = v6 ? found->v6Code : found->v4Code;
}

}  // namespace

/// What the requests of one family go through; the last one of them closes it.
class IcmpHandle {
 public:
  explicit IcmpHandle(AddressFamily family)
      : handle_(family == AddressFamily::IPv6 ? Icmp6CreateFile() : IcmpCreateFile()) {}
  ~IcmpHandle() {
    if (IsOpen()) IcmpCloseHandle(handle_);
  }
  IcmpHandle(const IcmpHandle&) = delete;
  IcmpHandle& operator=(const IcmpHandle&) = delete;

  bool IsOpen() const { return handle_ != INVALID_HANDLE_VALUE && handle_ != nullptr; }
  HANDLE Get() const { return handle_; }

 private:
  const HANDLE handle_;
};

/// Runs a function on the post, which waits for that and does nothing else. False when there is
/// none.
bool RunOnPost(PAPCFUNC function, void* context) {
  static const HANDLE post = CreateThread(
      nullptr, 0,
      [](void*) -> DWORD {
        for (;;) SleepEx(INFINITE, TRUE);
      },
      nullptr, 0, nullptr);
  return post != nullptr && QueueUserAPC(function, post, reinterpret_cast<ULONG_PTR>(context)) != 0;
}

/// Where the post leaves the numbers of the requests that have been answered.
class EchoInbox {
 public:
  explicit EchoInbox(HWND window) : window_(window) {}

  void Put(std::int32_t number) noexcept {
    std::int32_t bell = 0;
    try {
      const std::lock_guard lock(mutex_);
      numbers_.push_back(number);
      bell = bell_;
    } catch (const std::bad_alloc&) {  // as if the answer had been lost
      return;
    }
    PostMessageW(window_, kSocketMessage, static_cast<WPARAM>(bell), FD_READ);
  }
  std::vector<std::int32_t> Take() {
    const std::lock_guard lock(mutex_);
    return std::exchange(numbers_, {});
  }
  void SetBell(std::int32_t handle) {
    const std::lock_guard lock(mutex_);
    bell_ = handle;
  }

 private:
  const HWND window_;
  std::mutex mutex_;
  std::vector<std::int32_t> numbers_;
  std::int32_t bell_ = 0;
};

/// One request with its buffers, held by the loop's side and, until it has ended, by the post.
class EchoCall {
 public:
  EchoCall(const EchoRequest& request, std::chrono::milliseconds wanted, std::int32_t number,
           std::shared_ptr<IcmpHandle> handle, std::shared_ptr<EchoInbox> inbox)
      : ip_(request.ip),
        number_(number),
        timeout_(SystemTimeout(wanted)),
        handle_(std::move(handle)),
        inbox_(std::move(inbox)),
        data_(static_cast<std::size_t>(std::max(request.size, 0))),
        reply_(sizeof(Icmp6Reply) + sizeof(ICMP_ECHO_REPLY) + data_.size() + kExtra) {
    for (std::size_t i = 0; i < data_.size(); ++i) {
      data_[i] = static_cast<std::uint8_t>(number >> (8 * (i % 4)) & 0xFF);
    }
  }
  EchoCall(const EchoCall&) = delete;
  EchoCall& operator=(const EchoCall&) = delete;

  /// Returns a status; later troubles are outcomes.
  static std::int32_t Send(const std::shared_ptr<EchoCall>& call, std::int32_t ttl) {
    call->hops_ = ttl == 0 ? kUsualHops : static_cast<UCHAR>(std::clamp(ttl, 1, 255));
    auto held = std::make_unique<std::shared_ptr<EchoCall>>(call);
    if (!RunOnPost(&SendNow, held.get())) return kIpNoResources;
    held.release();
    return kIpSuccess;
  }

  /// What has come of it; none while nothing has, or only the end of its time.
  std::optional<EchoOutcome> Outcome() {
    if (!ended_) return std::nullopt;
    EchoOutcome outcome;
    outcome.status = refused_;
    if (refused_ != kIpSuccess) return outcome;
    if (ip_.IsIPv6() ? !Read6(outcome) : !Read4(outcome)) return std::nullopt;
    if (outcome.status == kIpTimedOut) return std::nullopt;
    outcome.roundTrip = std::max(came_ - sent_, steady_clock::duration(0));
    AddMessage(outcome, ip_.Family());
    return outcome;
  }

 private:
  static DWORD SystemTimeout(std::chrono::milliseconds wanted) {
    constexpr std::int64_t kMost = 0x7FFF'FFFF;
    const std::int64_t time = std::max<std::int64_t>(wanted.count(), 0);
    return static_cast<DWORD>(std::min(time, kMost - kMargin.count()) + kMargin.count());
  }

  static void CALLBACK SendNow(ULONG_PTR context) {
    auto* const held = reinterpret_cast<std::shared_ptr<EchoCall>*>(context);
    EchoCall& call = **held;
    call.sent_ = steady_clock::now();
    const DWORD error = call.Ask(held);
    if (error == ERROR_IO_PENDING || error == ERROR_SUCCESS) return;
    call.refused_ = StatusOf(error);
    Ended(held, nullptr, 0);
  }

  static void NTAPI Ended(void* context, void* /*status*/, ULONG /*reserved*/) {
    const std::unique_ptr<std::shared_ptr<EchoCall>> held(
        static_cast<std::shared_ptr<EchoCall>*>(context));
    EchoCall& call = **held;
    call.came_ = steady_clock::now();
    call.ended_ = true;
    call.inbox_->Put(call.number_);
  }

  DWORD Ask(void* context) {
    IP_OPTION_INFORMATION options{};
    options.Ttl = hops_;
    const auto size = static_cast<WORD>(data_.size());
    const auto room = static_cast<DWORD>(reply_.size());
    // Its type depends on which headers came before.
    const auto ended = reinterpret_cast<FARPROC>(reinterpret_cast<void*>(&Ended));
    DWORD replies = 0;
    if (ip_.IsIPv6()) {
      SystemAddress from = ToSystem({IpAddress::V6(std::array<std::uint8_t, 16>{}), 0});
      SystemAddress to = ToSystem({ip_, 0});
      replies = Icmp6SendEcho2(handle_->Get(), nullptr, ended, context, &from.v6, &to.v6,
                               data_.data(), size, &options, reply_.data(), room, timeout_);
    } else {
      replies =
          IcmpSendEcho2(handle_->Get(), nullptr, ended, context, static_cast<IPAddr>(ip_.Bits()),
                        data_.data(), size, &options, reply_.data(), room, timeout_);
    }
    return replies != 0 ? ERROR_SUCCESS : GetLastError();
  }

  bool Read4(EchoOutcome& outcome) {
    const auto room = static_cast<DWORD>(reply_.size());
    const bool parsed = IcmpParseReplies(reply_.data(), room) != 0;
    const auto& reply = *reinterpret_cast<const ICMP_ECHO_REPLY*>(reply_.data());
    if (!parsed && reply.Status == IP_SUCCESS) return false;
    outcome.status = StatusOf(reply.Status);
    if (reply.Status == IP_SUCCESS) outcome.status = kIpSuccess;
    if (reply.Address != 0) outcome.from = IpAddress::V4(static_cast<std::int32_t>(reply.Address));
    outcome.ttl = reply.Options.Ttl;
    return outcome.status != kIpSuccess || reply.DataSize == data_.size();
  }

  bool Read6(EchoOutcome& outcome) {
    const auto room = static_cast<DWORD>(reply_.size());
    const bool parsed = Icmp6ParseReplies(reply_.data(), room) != 0;
    Icmp6Reply reply;
    std::memcpy(&reply, reply_.data(), sizeof reply);
    if (!parsed && reply.status == IP_SUCCESS) return false;
    outcome.status = reply.status == IP_SUCCESS ? kIpSuccess : StatusOf(reply.status);
    std::uint32_t scope = 0;
    std::memcpy(&scope, reply.scope, sizeof scope);
    const IpAddress from = IpAddress::V6(reply.address, scope);
    if (!from.IsUnspecified()) outcome.from = from;
    return true;
  }

  const IpAddress ip_;
  const std::int32_t number_;
  const DWORD timeout_;
  const std::shared_ptr<IcmpHandle> handle_;
  const std::shared_ptr<EchoInbox> inbox_;
  Bytes data_;
  Bytes reply_;
  UCHAR hops_ = kUsualHops;
  std::int32_t refused_ = kIpSuccess;  // what the system said instead of sending
  steady_clock::time_point sent_;
  steady_clock::time_point came_;
  std::atomic<bool> ended_{false};
};

EchoCalls::EchoCalls(Notifier& notifier) : notifier_(notifier) {}

EchoCalls::~EchoCalls() { Close(); }

void EchoCalls::Close() {
  flights_.clear();
  arrivals_.clear();
  v4_.reset();
  v6_.reset();
  if (bell_ == 0) return;
  notifier_.Unwatch(bell_);
  CloseSocket(std::exchange(bell_, 0));
}

std::shared_ptr<IcmpHandle>& EchoCalls::HandleOf(AddressFamily family) {
  return family == AddressFamily::IPv6 ? v6_ : v4_;
}

std::int32_t EchoCalls::Open(AddressFamily family) {
  auto& handle = HandleOf(family);
  if (handle != nullptr) return 0;
  if (const std::int32_t error = OpenBell()) return error;
  auto made = std::make_shared<IcmpHandle>(family);
  if (!made->IsOpen()) return SocketErrorNumber(static_cast<int>(GetLastError()));
  handle = std::move(made);
  return 0;
}

std::int32_t EchoCalls::OpenBell() {
  if (bell_ != 0) return 0;
  std::int32_t made = 0;
  std::int32_t error = CreateSocket(SocketKind::Datagram, AddressFamily::IPv4, made);
  if (error != 0) return error;
  error = notifier_.Watch(made, SocketKind::Datagram, *this);
  const std::intptr_t window = notifier_.SharedWaker()->Open();
  if (error != 0 || window < 0) {
    CloseSocket(made);
    return error != 0 ? error : kErrNoBuffers;
  }
  bell_ = made;
  notifier_.SetAwaited(bell_);  // what nobody waits for is held back by Deliver
  inbox_ = std::make_shared<EchoInbox>(reinterpret_cast<HWND>(window));
  inbox_->SetBell(bell_);
  return 0;
}

std::int32_t EchoCalls::Send(const EchoRequest& request, std::chrono::milliseconds wanted,
                             const std::shared_ptr<EchoReceiver>& receiver, std::int32_t number) {
  if (request.size > static_cast<std::int32_t>(kLargestEcho)) return kIpTooBig;
  if (request.ip.IsLinkLocal() && request.ip.Scope() == 0) return kIpGeneralFailure;
  const auto call =
      std::make_shared<EchoCall>(request, wanted, number, HandleOf(request.ip.Family()), inbox_);
  flights_[number] = {receiver, call};
  ++receiver->inFlight;
  const std::int32_t status = EchoCall::Send(call, request.ttl);
  if (status != kIpSuccess) Forget(number);
  return status;
}

bool EchoCalls::HasAnswer(std::int32_t number) const {
  const auto found = flights_.find(number);
  return found != flights_.end() && found->second.answered;
}

void EchoCalls::Forget(std::int32_t number) {
  const auto found = flights_.find(number);
  if (found == flights_.end()) return;
  --found->second.receiver->inFlight;
  flights_.erase(found);
}

void EchoCalls::ForgetAll(const EchoReceiver& receiver) {
  std::erase_if(flights_,
                [&](const auto& flight) { return flight.second.receiver.get() == &receiver; });
}

void EchoCalls::Collect() {
  if (bell_ == 0) return;
  TakeInbox();
  if (arrivals_.empty()) return;
  notifier_.Renew(bell_);
  notifier_.Wake();
}

void EchoCalls::TakeInbox() {
  for (const std::int32_t number : inbox_->Take()) {
    const auto found = flights_.find(number);
    if (found == flights_.end()) continue;  // forgotten
    auto outcome = found->second.call->Outcome();
    if (!outcome) continue;
    found->second.answered = true;
    arrivals_.push_back({number, std::move(*outcome)});
  }
}

void EchoCalls::OnSocket(std::int32_t /*handle*/, SocketEvent event, std::int32_t /*error*/) {
  if (event != SocketEvent::Read) return;
  TakeInbox();
  Deliver();
}

// The next arrival that is still wanted. While pumps are nested deeply, those that no blocking call
// waits for stay where they are.
bool EchoCalls::TakeNext(bool awaitedOnly, Arrival& arrival,
                         std::shared_ptr<EchoReceiver>& receiver) {
  for (auto next = arrivals_.begin(); next != arrivals_.end();) {
    const auto flight = flights_.find(next->number);
    if (flight != flights_.end() && awaitedOnly && !flight->second.receiver->awaited) {
      ++next;
      continue;
    }
    arrival = std::move(*next);
    next = arrivals_.erase(next);
    if (flight == flights_.end()) continue;  // forgotten
    receiver = flight->second.receiver;
    Forget(arrival.number);
    return true;
  }
  return false;
}

void EchoCalls::Deliver() {
  const auto self = shared_from_this();  // outlives a deletion inside the call
  Arrival arrival;
  std::shared_ptr<EchoReceiver> receiver;
  const bool held = notifier_.HoldsReads();
  for (int left = kCallsPerTurn; held || left > 0; --left) {
    if (!TakeNext(held, arrival, receiver)) break;
    // What is left goes back to the queue first: the function called may wait for it.
    if (!arrivals_.empty() && !held) notifier_.Renew(bell_);
    if (receiver->alive) receiver->answered(arrival.number, arrival.outcome);
  }
  if (!arrivals_.empty() && held) notifier_.HoldBack(bell_);
}

}  // namespace netro
