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
#include "platform/linux/EchoLine.h"

#include <algorithm>
#include <limits>
#include <new>
#include <utility>

#include "platform/ErrorNumbers.h"
#include "platform/Random.h"

namespace netro {
namespace {

constexpr std::size_t kMostInFlight = 65'536;  // sequence numbers
constexpr std::size_t kHeaders = 60 + 8;       // the longest IPv4 header, and that of ICMP
constexpr std::size_t kSmallestRoom = 2'048;   // holds any error message
constexpr int kSendsUnread = 64;
constexpr std::size_t kAnswersPerTurn = 32 * MessageBatch::kMost;
constexpr int kCallsPerTurn = 64;
constexpr std::size_t kMostArrivals = 2 * kMostInFlight;  // a host may answer without end
constexpr int kTries = 8;  // errors may come in as fast as calls tell them

// The data of a request: its token, again and again.
std::uint8_t DataByte(std::uint64_t token, std::size_t index) {
  return static_cast<std::uint8_t>(token >> (8 * (index % 8)) & 0xFF);
}

std::uint16_t Sequence(std::int32_t number) { return static_cast<std::uint16_t>(number & 0xFFFF); }

std::size_t DataSize(const EchoRequest& request) {
  return static_cast<std::size_t>(std::max(request.size, 0));
}

}  // namespace

EchoLine::EchoLine(Notifier& notifier)
    : notifier_(notifier),
      identifier_(static_cast<std::uint16_t>(RandomNumber())),
      secret_(static_cast<std::uint64_t>(RandomNumber()) << 32 | RandomNumber()) {
  batch_.Reserve(kSmallestRoom);
}

std::int32_t EchoLine::Open(AddressFamily family) {
  Port& port = PortOf(family);
  if (port.socket) return 0;
  auto socket = std::make_unique<IcmpSocket>(notifier_, family);
  if (const std::int32_t error = socket->Open(*this)) return error;
  // What nobody waits for is held back by Deliver.
  notifier_.SetAwaited(socket->Handle());
  if (handle_ == 0) handle_ = socket->Handle();
  port.socket = std::move(socket);
  return 0;
}

void EchoLine::Close() {
  for (Port& port : ports_) {  // a new one would need memory
    port.socket.reset();
    port.waiting.clear();
    port.unread = 0;
  }
  flights_.clear();
  arrivals_.clear();
}

EchoSocket EchoLine::KindOf(AddressFamily family) const {
  const Port& port = ports_[family == AddressFamily::IPv6 ? 1 : 0];
  return port.socket ? port.socket->Kind() : EchoSocket::None;
}

bool EchoLine::IsFull() const { return flights_.size() >= kMostInFlight; }

EchoLine::Flight* EchoLine::Find(std::int32_t number) {
  const auto found = flights_.find(Sequence(number));
  return found != flights_.end() && found->second.number == number ? &found->second : nullptr;
}

std::int32_t EchoLine::ChooseNumber(std::int32_t last) const {
  do {
    const bool wrap = last == std::numeric_limits<std::int32_t>::max();
    last = wrap ? 1 : last + 1;
  } while (flights_.contains(Sequence(last)));
  return last;
}

std::int32_t EchoLine::Send(const EchoRequest& request,
                            const std::shared_ptr<EchoReceiver>& receiver, std::int32_t& lastNumber,
                            std::int32_t& number) try {
  Port& port = PortOf(request.ip.Family());
  // Where nothing is under way, no answer and no freed buffer tells of room.
  if (!port.waiting.empty() && flights_.size() <= port.waiting.size()) {
    SendWaiting(port);
    if (!arrivals_.empty()) DeliverLater();
  }
  if (IsFull() || port.waiting.size() >= kMostInFlight) return kIpNoResources;
  number = lastNumber = ChooseNumber(lastNumber);
  if (DataSize(request) > kLargestEcho) return kIpTooBig;
  Flight& flight = flights_[Sequence(number)];
  flight = {number, request, receiver, {}, false, false};
  ++receiver->inFlight;
  const std::int32_t error = port.waiting.empty() ? Transmit(*port.socket, flight) : kErrWouldBlock;
  if (error == kErrWouldBlock) {
    flight.waits = true;
    port.waiting.push_back(number);
  } else if (error != 0) {
    Forget(number);
    return EchoSendStatus(error);
  }
  if (++port.unread >= (port.socket->Stamps() ? kSendsUnread : 1)) Collect(port);
  return 0;
} catch (const std::bad_alloc&) {
  Forget(number);
  throw;
}

void EchoLine::Collect() {
  for (Port& port : ports_) Collect(port);
}

void EchoLine::Collect(Port& port) {
  std::size_t turns = 1 + flights_.size() / kAnswersPerTurn;
  while (!ReadAll(port) && --turns > 0) continue;
  if (!arrivals_.empty()) DeliverLater();
}

bool EchoLine::HasAnswer(std::int32_t number) {
  const Flight* flight = Find(number);
  return flight != nullptr && flight->answered;
}

bool EchoLine::LacksMemory(std::int32_t number) {
  const Flight* flight = Find(number);
  if (flight == nullptr) return false;
  return flight->waits || PortOf(flight->request.ip.Family()).socket->LacksMemory();
}

void EchoLine::Forget(std::int32_t number) {
  const Flight* flight = Find(number);
  if (flight == nullptr) return;
  --flight->receiver->inFlight;
  flights_.erase(Sequence(number));
}

void EchoLine::ForgetAll(const EchoReceiver& receiver) {
  std::erase_if(flights_,
                [&](const auto& flight) { return flight.second.receiver.get() == &receiver; });
}

std::int32_t EchoLine::Transmit(IcmpSocket& socket, Flight& flight) {
  const EchoRequest& request = flight.request;
  batch_.Reserve(DataSize(request) + kHeaders);
  if (const std::int32_t refused = socket.SetTtl(request.ttl)) return refused;
  Bytes data(DataSize(request));
  const std::uint64_t token = secret_ ^ static_cast<std::uint64_t>(flight.number);
  for (std::size_t i = 0; i < data.size(); ++i) data[i] = DataByte(token, i);
  const Bytes packet =
      ComposeEchoRequest(request.ip.Family(), identifier_, Sequence(flight.number), data);
  std::int32_t error = 0;
  for (int tries = 0; tries < kTries; ++tries) {
    flight.sent = SendTime::Now();
    error = socket.Send(packet, request.ip);
    if (error == 0 || error == kErrWouldBlock) return error;
  }
  return error;
}

// The system has room again.
void EchoLine::SendWaiting(Port& port) {
  for (; !port.waiting.empty(); port.waiting.pop_front()) {
    Flight* flight = Find(port.waiting.front());
    if (flight == nullptr) continue;  // forgotten
    const std::int32_t error = Transmit(*port.socket, *flight);
    if (error == kErrWouldBlock) return;
    flight->waits = false;
    if (error != 0) arrivals_.push_back({flight->number, {EchoSendStatus(error), {}, {}, 0}});
  }
}

void EchoLine::OnSocket(std::int32_t handle, SocketEvent event, std::int32_t /*error*/) {
  for (Port& port : ports_) {
    if (!port.socket || port.socket->Handle() != handle) continue;
    if (event == SocketEvent::Write) SendWaiting(port);
    if (!ReadAll(port)) notifier_.Renew(handle);
  }
  Deliver();
}

// False when there may be more.
bool EchoLine::ReadAll(Port& port) {
  port.unread = 0;
  if (!port.socket) return true;
  const IcmpSocket& socket = *port.socket;
  return port.socket->Receive(
      batch_, [&](const IcmpAnswer& answer, auto arrived) { Take(socket, answer, arrived); });
}

void EchoLine::Take(const IcmpSocket& socket, const IcmpAnswer& answer, SystemTime arrived) {
  const auto found = flights_.find(answer.sequence);
  if (found == flights_.end() || found->second.waits) return;
  Flight& flight = found->second;
  const bool wanted =
      !flight.answered || (flight.receiver->wantsDuplicates && answer.status == kIpSuccess &&
                           arrivals_.size() < kMostArrivals);
  if (!wanted || !Matches(socket, flight, answer)) return;
  const auto time = flight.sent.Until(arrived);
  arrivals_.push_back({flight.number,
                       {answer.status, answer.from, time, answer.ttl, answer.type, answer.code,
                        answer.labels, flight.answered}});
  flight.answered = true;
}

bool EchoLine::Matches(const IcmpSocket& socket, const Flight& flight,
                       const IcmpAnswer& answer) const {
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

// The next arrival that is still wanted. While pumps are nested deeply, those that no blocking call
// waits for stay where they are.
bool EchoLine::TakeNext(bool awaitedOnly, Arrival& arrival,
                        std::shared_ptr<EchoReceiver>& receiver) {
  for (auto next = arrivals_.begin(); next != arrivals_.end();) {
    const Flight* flight = Find(next->number);
    if (flight != nullptr && awaitedOnly && !flight->receiver->awaited) {
      ++next;
      continue;
    }
    arrival = std::move(*next);
    next = arrivals_.erase(next);
    if (flight == nullptr) continue;  // forgotten
    receiver = flight->receiver;
    const bool more = receiver->wantsDuplicates && arrival.outcome.status == kIpSuccess;
    if (!more) Forget(arrival.number);
    return true;
  }
  return false;
}

void EchoLine::Deliver() {
  const auto self = shared_from_this();  // outlives a deletion inside the call
  Arrival arrival;
  std::shared_ptr<EchoReceiver> receiver;
  const bool held = notifier_.HoldsReads();
  for (int left = kCallsPerTurn; held || left > 0; --left) {
    if (!TakeNext(held, arrival, receiver)) break;
    // What is left goes back to the queue first: the function called may wait for it.
    if (!arrivals_.empty() && !held) notifier_.Renew(handle_);
    if (receiver->alive) receiver->answered(arrival.number, arrival.outcome);
  }
  if (!arrivals_.empty() && held) notifier_.HoldBack(handle_);
}

void EchoLine::DeliverLater() {
  notifier_.Renew(handle_);
  notifier_.Wake();
}

}  // namespace netro
