// Echo requests on Linux.
//
// Replies come while requests are still being sent: on loopback within the call. The system's
// buffer holds a few hundred, so Send reads in between and keeps what it read for the loop.
//
// Times are taken from the system's stamps: a reply may lie in the buffer while others are sent.
// The system begins to stamp some milliseconds after it has been asked to, unless another socket
// has asked before; until then a stamp is the time of reading, and so each send is followed by a
// read. Stamps are wall clock times. Where these contradict the steady clock, somebody has set the
// clock, and the time of reading counts.
#include "platform/Echo.h"

#include <algorithm>
#include <limits>
#include <utility>

#include "platform/ErrorNumbers.h"
#include "platform/Random.h"
#include "platform/linux/IcmpSocket.h"
#include "platform/linux/MessageBatch.h"

namespace netro {
namespace {

using std::chrono::steady_clock;
using std::chrono::system_clock;

constexpr std::size_t kMostInFlight = 65'536;  // sequence numbers
constexpr std::size_t kHeaders = 60 + 8;       // the longest IPv4 header, and that of ICMP
constexpr std::size_t kSmallestRoom = 2'048;   // holds any error message
constexpr int kSendsUnread = 64;
constexpr std::size_t kAnswersPerTurn = 32 * MessageBatch::kMost;
constexpr int kCallsPerTurn = 64;
constexpr int kTries = 8;  // errors may come in as fast as calls tell them

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

Echo::~Echo() { *alive_ = false; }

std::int32_t Echo::Open(const IpAddress& ip) {
  Port& port = PortOf(ip);
  if (port.socket) return 0;
  if (!batch_) {
    batch_ = std::make_unique<MessageBatch>();
    batch_->Reserve(kSmallestRoom);
    identifier_ = static_cast<std::uint16_t>(RandomNumber());
    secret_ = static_cast<std::uint64_t>(RandomNumber()) << 32 | RandomNumber();
  }
  auto socket = std::make_unique<IcmpSocket>(notifier_, ip.Family());
  if (const std::int32_t error = socket->Open(*this)) return error;
  kind_ = socket->Kind();
  if (handle_ == 0) handle_ = socket->Handle();
  if (awaited_) notifier_.SetAwaited(socket->Handle());
  port.socket = std::move(socket);
  return 0;
}

Echo::Flight* Echo::Find(std::int32_t number) {
  const auto found = flights_.find(Sequence(number));
  return found != flights_.end() && found->second.number == number ? &found->second : nullptr;
}

bool Echo::ChooseNumber() {
  if (flights_.size() >= kMostInFlight) return false;
  do {
    const bool wrap = lastNumber_ == std::numeric_limits<std::int32_t>::max();
    lastNumber_ = wrap ? 1 : lastNumber_ + 1;
  } while (flights_.contains(Sequence(lastNumber_)));
  return true;
}

std::int32_t Echo::Send(const EchoRequest& request, std::int32_t& number) {
  number = 0;
  Port& port = PortOf(request.ip);
  if (!port.socket || port.waiting.size() >= kMostInFlight || !ChooseNumber()) {
    return kIpNoResources;
  }
  number = lastNumber_;
  if (DataSize(request) > kLargestEcho) return kIpTooBig;
  Flight& flight = flights_[Sequence(number)];
  flight = {number, request, {}, {}, false, false};
  const std::int32_t error = port.waiting.empty() ? Transmit(*port.socket, flight) : kErrWouldBlock;
  if (error == kErrWouldBlock) {
    flight.waits = true;
    port.waiting.push_back(number);
  } else if (error != 0) {
    flights_.erase(Sequence(number));
    return EchoSendStatus(error);
  }
  if (++port.unread >= (port.socket->Stamps() ? kSendsUnread : 1)) Collect(port);
  return 0;
}

void Echo::Collect() {
  for (Port& port : ports_) Collect(port);
}

void Echo::Collect(Port& port) {
  std::size_t turns = 1 + flights_.size() / kAnswersPerTurn;
  while (!ReadAll(port) && --turns > 0) continue;
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

std::int32_t Echo::Transmit(IcmpSocket& socket, Flight& flight) {
  const EchoRequest& request = flight.request;
  batch_->Reserve(DataSize(request) + kHeaders);
  if (const std::int32_t refused = socket.SetTtl(request.ttl)) return refused;
  Bytes data(DataSize(request));
  const std::uint64_t token = secret_ ^ static_cast<std::uint64_t>(flight.number);
  for (std::size_t i = 0; i < data.size(); ++i) data[i] = DataByte(token, i);
  const Bytes packet =
      ComposeEchoRequest(request.ip.Family(), identifier_, Sequence(flight.number), data);
  std::int32_t error = 0;
  for (int tries = 0; tries < kTries; ++tries) {
    flight.wallSent = system_clock::now();
    flight.sent = steady_clock::now();
    error = socket.Send(packet, request.ip);
    if (error == 0 || error == kErrWouldBlock) return error;
  }
  return error;
}

// The system has room again.
void Echo::SendWaiting(Port& port) {
  for (; !port.waiting.empty(); port.waiting.pop_front()) {
    Flight* flight = Find(port.waiting.front());
    if (flight == nullptr) continue;  // forgotten
    const std::int32_t error = Transmit(*port.socket, *flight);
    if (error == kErrWouldBlock) return;
    flight->waits = false;
    if (error != 0) arrivals_.push_back({flight->number, {EchoSendStatus(error), {}, {}, 0}});
  }
}

void Echo::OnSocket(std::int32_t handle, SocketEvent event, std::int32_t /*error*/) {
  for (Port& port : ports_) {
    if (!port.socket || port.socket->Handle() != handle) continue;
    if (event == SocketEvent::Write) SendWaiting(port);
    if (!ReadAll(port)) notifier_.Renew(handle);
  }
  Deliver();
}

// False when there may be more.
bool Echo::ReadAll(Port& port) {
  port.unread = 0;
  if (!port.socket) return true;
  const IcmpSocket& socket = *port.socket;
  return port.socket->Receive(
      *batch_, [&](const IcmpAnswer& answer, auto arrived) { Take(socket, answer, arrived); });
}

void Echo::Take(const IcmpSocket& socket, const IcmpAnswer& answer,
                system_clock::time_point arrived) {
  const auto found = flights_.find(answer.sequence);
  if (found == flights_.end() || found->second.waits || found->second.answered) return;
  if (!Matches(socket, found->second, answer)) return;
  Flight& flight = found->second;
  flight.answered = true;
  const auto time = RoundTrip(flight.sent, flight.wallSent, arrived);
  arrivals_.push_back({flight.number, {answer.status, answer.from, time, answer.ttl}});
}

bool Echo::Matches(const IcmpSocket& socket, const Flight& flight, const IcmpAnswer& answer) const {
  if (answer.destination != flight.request.ip) return false;
  // The system gives a datagram socket an identifier of its own and delivers by it.
  if (socket.Kind() == EchoSocket::Raw && answer.identifier != identifier_) return false;
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
