// Echo requests on Linux.
//
// A datagram ICMP socket sends with an identifier that the system chooses, receives the replies to
// it only, without the IP header, and, with IP_RECVERR, finds ICMP errors in its error queue, which
// begin with the request that they quote. A raw socket receives every ICMP packet of the host.
//
// With either, replies come while requests are still being sent: on loopback within the call. The
// system's buffer holds a few hundred, so Send reads in between and keeps what it read for the
// loop.
//
// An error in the queue is also told once by the next call on the socket, whichever it is: that
// call is tried again.
//
// Times are taken from the system's stamps: a reply may lie in the buffer while others are sent.
// The system begins to stamp some milliseconds after it has been asked to, unless another socket
// has asked before; until then a stamp is the time of reading, and so each send is followed by a
// read. Stamps are wall clock times. Where these contradict the steady clock, somebody has set the
// clock, and the time of reading counts.
#include "platform/Echo.h"

#include <netinet/in.h>
#include <sys/socket.h>

#include <algorithm>
#include <cerrno>
#include <limits>
#include <optional>
#include <utility>
#include <vector>

#include "platform/ErrorNumbers.h"
#include "platform/Random.h"
#include "platform/linux/Descriptor.h"
#include "platform/linux/MessageBatch.h"

namespace netro {
namespace {

using std::chrono::steady_clock;
using std::chrono::system_clock;

constexpr std::size_t kMostInFlight = 65'536;  // sequence numbers
constexpr std::size_t kHeaders = 60 + 8;       // the longest IP header, and that of ICMP
constexpr std::size_t kSmallestRoom = 2'048;   // holds any error message
constexpr int kSendsUnread = 64;
constexpr int kBatchesPerTurn = 32;
constexpr int kCallsPerTurn = 64;
constexpr int kTries = 8;                 // errors may come in as fast as calls tell them
constexpr int kBuffer = 4 * 1024 * 1024;  // asked for; the system gives what it may

// From <linux/icmp.h>, which does not go together with the C library's headers.
constexpr int kIcmpFilter = 1;
constexpr std::uint32_t kFilteredOut =
    ~((1U << 0) | (1U << 3) | (1U << 4) | (1U << 11) | (1U << 12));

void SetOption(int handle, int level, int option, int value) {
  setsockopt(handle, level, option, &value, sizeof value);
}

// The data of a request: its token, again and again.
std::uint8_t DataByte(std::uint64_t token, std::size_t index) {
  return static_cast<std::uint8_t>(token >> (8 * (index % 8)) & 0xFF);
}

std::uint16_t Sequence(std::int32_t number) { return static_cast<std::uint16_t>(number & 0xFFFF); }

std::size_t DataSize(const EchoRequest& request) {
  return static_cast<std::size_t>(std::max(request.size, 0));
}

std::chrono::nanoseconds RoundTrip(steady_clock::time_point sent, system_clock::time_point wallSent,
                                   system_clock::time_point wallArrived) {
  const std::chrono::nanoseconds elapsed = steady_clock::now() - sent;
  const std::chrono::nanoseconds stamped = wallArrived - wallSent;
  return stamped.count() >= 0 && stamped <= elapsed ? stamped : elapsed;
}

// What a datagram socket receives.
std::optional<IcmpAnswer> ReadReply(const BatchMessage& message) {
  auto answer = ReadEchoReply(message.bytes);
  if (!answer) return std::nullopt;
  answer->from = answer->destination = message.address;
  answer->ttl = message.ttl;
  return answer;
}

std::optional<IcmpAnswer> ReadError(const BatchMessage& message) {
  if (!message.isIcmpError) return std::nullopt;
  const auto status = IcmpErrorStatus(message.error.type, message.error.code);
  auto answer = status ? ReadQuotedRequest(message.bytes) : std::nullopt;
  if (!answer) return std::nullopt;
  answer->status = *status;
  answer->from = message.error.from;
  answer->destination = message.address;
  answer->ttl = message.ttl;
  return answer;
}

}  // namespace

std::int32_t EchoSendStatus(std::int32_t error) {
  switch (error) {
    case 0:
      return kIpSuccess;
    case 10040:  // message too long
      return kIpTooBig;
    case 10050:  // network down, network unreachable
    case 10051:
      return kIpNoNetwork;
    case 10064:  // host down, no route to host
    case 10065:
      return kIpNoHost;
    case 10055:  // no buffers
      return kIpNoResources;
    default:
      return kIpGeneralFailure;
  }
}

Echo::Echo(Notifier& notifier, Answered answered)
    : notifier_(notifier), answered_(std::move(answered)) {}

Echo::~Echo() {
  *alive_ = false;
  if (handle_ == 0) return;
  notifier_.Unwatch(handle_);
  CloseSocket(handle_);
}

std::int32_t Echo::Open() {
  if (handle_ != 0) return 0;
  batch_ = std::make_unique<MessageBatch>();
  batch_->Reserve(kSmallestRoom);
  constexpr int kFlags = SOCK_NONBLOCK | SOCK_CLOEXEC;
  EchoSocket kind = EchoSocket::Datagram;
  int made = AwayFromZero(socket(AF_INET, SOCK_DGRAM | kFlags, IPPROTO_ICMP));
  if (made < 0) {
    kind = EchoSocket::Raw;
    made = AwayFromZero(socket(AF_INET, SOCK_RAW | kFlags, IPPROTO_ICMP));
  }
  if (made < 0) return SocketErrorNumber(errno);
  if (const std::int32_t error = notifier_.Watch(made, SocketKind::Datagram, *this)) {
    CloseSocket(made);
    return error;
  }
  handle_ = made;
  kind_ = kind;
  MessageBatch::Prepare(handle_, kind_ == EchoSocket::Datagram);
  SetOption(handle_, SOL_SOCKET, SO_RCVBUF, kBuffer);
  SetOption(handle_, SOL_SOCKET, SO_SNDBUF, kBuffer);
  if (kind_ == EchoSocket::Raw) {
    SetOption(handle_, SOL_RAW, kIcmpFilter, static_cast<int>(kFilteredOut));
  }
  identifier_ = static_cast<std::uint16_t>(RandomNumber());
  secret_ = static_cast<std::uint64_t>(RandomNumber()) << 32 | RandomNumber();
  return 0;
}

Echo::Flight* Echo::Find(std::int32_t number) {
  const auto found = flights_.find(Sequence(number));
  return found != flights_.end() && found->second.number == number ? &found->second : nullptr;
}

bool Echo::ChooseNumber() {
  if (flights_.size() >= kMostInFlight || waiting_.size() >= kMostInFlight) return false;
  do {
    const bool wrap = lastNumber_ == std::numeric_limits<std::int32_t>::max();
    lastNumber_ = wrap ? 1 : lastNumber_ + 1;
  } while (flights_.contains(Sequence(lastNumber_)));
  return true;
}

std::int32_t Echo::Send(const EchoRequest& request, std::int32_t& number) {
  number = 0;
  if (handle_ == 0 || !ChooseNumber()) return kIpNoResources;
  number = lastNumber_;
  if (DataSize(request) > kLargestEcho) return kIpTooBig;
  Flight& flight = flights_[Sequence(number)];
  flight = {number, request, {}, {}, false, false};
  const std::int32_t error = waiting_.empty() ? Transmit(flight) : kErrWouldBlock;
  if (error == kErrWouldBlock) {
    flight.waits = true;
    waiting_.push_back(number);
  } else if (error != 0) {
    flights_.erase(Sequence(number));
    return EchoSendStatus(error);
  }
  if (++unread_ >= (stamps_ ? kSendsUnread : 1)) Collect();
  return 0;
}

void Echo::Collect() {
  std::size_t turns = 1 + flights_.size() / (kBatchesPerTurn * MessageBatch::kMost);
  while (!ReadAll() && --turns > 0) continue;
  if (!arrivals_.empty()) DeliverLater();
}

bool Echo::HasAnswer(std::int32_t number) {
  const Flight* flight = Find(number);
  return flight != nullptr && flight->answered;
}

bool Echo::Waits(std::int32_t number) {
  const Flight* flight = Find(number);
  return flight != nullptr && flight->waits;
}

void Echo::Forget(std::int32_t number) {
  if (Find(number) != nullptr) flights_.erase(Sequence(number));
}

std::int32_t Echo::SetTtl(std::int32_t ttl) {
  if (ttl == ttl_) return 0;
  const int value = ttl == 0 ? -1 : ttl;
  if (setsockopt(handle_, IPPROTO_IP, IP_TTL, &value, sizeof value) != 0) {
    return SocketErrorNumber(errno);
  }
  ttl_ = ttl;
  return 0;
}

std::int32_t Echo::Transmit(Flight& flight) {
  const EchoRequest& request = flight.request;
  batch_->Reserve(DataSize(request) + kHeaders);
  if (const std::int32_t refused = SetTtl(request.ttl)) return refused;
  Bytes data(DataSize(request));
  const std::uint64_t token = secret_ ^ static_cast<std::uint64_t>(flight.number);
  for (std::size_t i = 0; i < data.size(); ++i) data[i] = DataByte(token, i);
  const Bytes packet = ComposeEchoRequest(identifier_, Sequence(flight.number), data);
  const SocketAddress to{IpAddress::V4(request.ip), 0};
  std::int32_t error = 0;
  for (int tries = 0; tries < kTries; ++tries) {
    flight.wallSent = system_clock::now();
    flight.sent = steady_clock::now();
    if (notifier_.Send(handle_, packet, error, &to) >= 0) return 0;
    if (error == kErrWouldBlock) return error;
    // So a raw socket tells that its buffer is full.
    if (kind_ == EchoSocket::Raw && error == kErrNoBuffers) {
      notifier_.AwaitRoom(handle_);
      return kErrWouldBlock;
    }
  }
  return error;
}

// The system has room again.
void Echo::SendWaiting() {
  for (; !waiting_.empty(); waiting_.pop_front()) {
    Flight* flight = Find(waiting_.front());
    if (flight == nullptr) continue;  // forgotten
    const std::int32_t error = Transmit(*flight);
    if (error == kErrWouldBlock) return;
    flight->waits = false;
    if (error != 0) arrivals_.push_back({flight->number, {EchoSendStatus(error), 0, {}, 0}});
  }
}

void Echo::OnSocket(std::int32_t /*handle*/, SocketEvent event, std::int32_t /*error*/) {
  if (event == SocketEvent::Write) SendWaiting();
  if (!ReadAll()) notifier_.Renew(handle_);
  Deliver();
}

// False when there may be more. Errors are taken first and used last: whatever came before them is
// then in the other queue, and a reply counts more than an error.
bool Echo::ReadAll() {
  unread_ = 0;
  std::vector<Heard> errors;
  bool all = true;
  if (kind_ == EchoSocket::Datagram) {
    all = ReadQueue(true, [&](const Heard& heard) { errors.push_back(heard); });
  }
  all = ReadQueue(false, [this](const Heard& heard) { Take(heard); }) && all;
  for (const Heard& heard : errors) Take(heard);
  return all;
}

// False when there may be more: what comes after a batch that is not full is notified anew.
bool Echo::ReadQueue(bool errors, const std::function<void(const Heard&)>& take) {
  for (int batches = 0; batches < kBatchesPerTurn; ++batches) {
    const system_clock::time_point start = system_clock::now();
    int count = -1;
    for (int tries = 0; tries < kTries && count < 0; ++tries) {
      count = batch_->Receive(handle_, errors);
      if (count < 0 && errno == EAGAIN) return true;
    }
    for (int i = 0; i < count; ++i) {
      const BatchMessage message = (*batch_)[static_cast<std::size_t>(i)];
      const auto answer = kind_ == EchoSocket::Raw ? ReadIcmpPacket(message.bytes)
                          : errors                 ? ReadError(message)
                                                   : ReadReply(message);
      if (answer) take({*answer, message.arrived});
      stamps_ |= message.arrived != system_clock::time_point() && message.arrived < start;
    }
    if (count < static_cast<int>(MessageBatch::kMost)) return count >= 0;
  }
  return false;
}

void Echo::Take(const Heard& heard) {
  const IcmpAnswer& answer = heard.answer;
  const auto found = flights_.find(answer.sequence);
  if (found == flights_.end() || found->second.waits || found->second.answered) return;
  if (!Matches(found->second, answer)) return;
  Flight& flight = found->second;
  flight.answered = true;
  const auto time = RoundTrip(flight.sent, flight.wallSent, heard.arrived);
  arrivals_.push_back({flight.number, {answer.status, answer.from, time, answer.ttl}});
}

bool Echo::Matches(const Flight& flight, const IcmpAnswer& answer) const {
  if (answer.destination != flight.request.ip) return false;
  // The system gives a datagram socket an identifier of its own and delivers by it.
  if (kind_ == EchoSocket::Raw && answer.identifier != identifier_) return false;
  if (answer.status != kIpSuccess) return true;
  if (answer.data.size() != DataSize(flight.request)) return false;
  const std::uint64_t token = secret_ ^ static_cast<std::uint64_t>(flight.number);
  for (std::size_t i = 0; i < answer.data.size(); ++i) {
    if (answer.data[i] != DataByte(token, i)) return false;
  }
  return true;
}

void Echo::Deliver() {
  // Both outlive a deletion inside the call.
  const auto alive = alive_;
  const Answered answered = answered_;
  for (int left = kCallsPerTurn; left > 0 && *alive && !arrivals_.empty(); --left) {
    const Arrival arrival = arrivals_.front();
    arrivals_.pop_front();
    // What is left goes back to the queue first: the function called may wait for it.
    if (!arrivals_.empty()) notifier_.Renew(handle_);
    if (Find(arrival.number) == nullptr) continue;  // forgotten
    flights_.erase(Sequence(arrival.number));
    answered(arrival.number, arrival.outcome);
  }
}

void Echo::DeliverLater() {
  notifier_.Renew(handle_);
  notifier_.Wake();
}

}  // namespace netro
