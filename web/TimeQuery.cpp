#include "web/TimeQuery.h"

#include <algorithm>

#include "platform/ErrorNumbers.h"
#include "platform/Random.h"
#include "platform/Sockets.h"
#include "socket/DatagramExchange.h"
#include "socket/HostLookup.h"
#include "socket/StreamExchange.h"

namespace netro {
namespace {

constexpr std::int32_t kSntpPort = 123;

/// A server that has sent a whole reply closes; one that does not is not waited for any longer.
constexpr long kSecondsToClose = 1;
constexpr long kSecondsForName = 1;

bool IsWhole(const Bytes& reply) { return reply.size() == kTimeSize || reply.size() == kSntpSize; }

// The reply is what comes until the server closes: any text begins with four bytes.
class TcpTimeExchange final : public StreamExchange {
 public:
  using Begin = std::function<std::span<const std::uint8_t>()>;

  /// `arrived` is called when a reply may be complete.
  TcpTimeExchange(Begin begin, std::function<void()> arrived, const CancelMark& mark)
      : StreamExchange(mark), begin_(std::move(begin)), arrived_(std::move(arrived)) {}

  Bytes TakeReply() { return std::move(reply_); }

 private:
  std::string Request() override {
    const auto request = begin_();
    return {request.begin(), request.end()};
  }

  void Arrived(std::span<const std::uint8_t> bytes) override {
    const bool seemedWhole = IsWhole(reply_);
    reply_.insert(reply_.end(), bytes.begin(), bytes.end());
    if (IsWhole(reply_)) {
      arrived_();
      EndAfter(kSecondsToClose);
    } else if (reply_.size() > kSntpSize) {
      arrived_();
      End(0);
    } else if (seemedWhole) {
      Progress();
    }
  }

  std::int32_t PeerClosed(std::int32_t error) override {
    if (IsWhole(reply_)) return 0;
    if (error == 0) arrived_();
    return error;
  }

  const Begin begin_;
  const std::function<void()> arrived_;
  Bytes reply_;
};

}  // namespace

TimeQuery::TimeQuery(QueryTimeCLS& owner)
    : owner_(owner),
      call_(owner.call_),
      mark_(owner.module_, owner.call_),
      settings_(owner.settings_),
      proxy_(owner.Proxy()),
      deadline_(MillisecondsFromNow(owner.settings_.timeout)) {
  owner.result_ = {};
}

std::int32_t TimeQuery::Run() {
  if (settings_.port < 1 || settings_.port > 65535) return kErrInvalidArgument;
  Bytes reply;
  std::int32_t error = settings_.useUDP ? AskOverUdp(reply) : AskOverTcp(reply);
  if (error != 0) return error;
  TimeResult result;
  std::optional<std::int32_t> reference;
  error = ReadTimeReply(reply, exchange_, result, reference);
  // The clock has been read: this cannot falsify it any more.
  if (reference) {
    const std::int32_t ended = NameReference(*reference, result.referenceId);
    if (error == 0) error = ended;
  }
  if (!call_->alive) return kErrCancelled;
  owner_.result_ = std::move(result);
  return error;
}

// Takes the time last: what stands between the clock and the call that sends counts as the way. The
// first look at the time zone alone takes milliseconds.
std::span<const std::uint8_t> TimeQuery::Begin() {
  exchange_.version = settings_.version;
  exchange_.fraction = settings_.randomFraction ? RandomNumber() : 0;
  exchange_.sent = SystemTime();
  exchange_.localOffset = LocalTimeOffset(exchange_.sent);
  request_ = settings_.port == kSntpPort ? ComposeTimeRequest(exchange_) : Bytes();
  exchange_.sent = SystemTime();
  begun_ = Now();
  return request_;
}

// The reply's length decides how it is read; an SNTP reply to another question does not count.
bool TimeQuery::Accepts(std::span<const std::uint8_t> reply) const {
  return reply.size() != kSntpSize || request_.empty() || AnswersTimeRequest(reply, request_);
}

void TimeQuery::Arrived(TimePoint when) {
  exchange_.roundTrip = std::max(when - begun_, TimePoint::duration::zero());
}

std::int32_t TimeQuery::AskOverUdp(Bytes& reply) {
  const LookupAnswer host = ResolveHost(settings_.server, Lookups(), mark_, deadline_);
  if (host.error != 0) return ConnectError(host.error);
  if (!call_->alive) return kErrCancelled;
  // Of its own: a reply to an empty request could be one to any other.
  DatagramPool sockets(mark_.Module().Notifications(), true);
  DatagramExchange exchange(mark_, sockets);
  const std::int32_t error = exchange.Ask(
      {host.First(), settings_.port}, [this] { return Begin(); },
      [this](std::span<const std::uint8_t> bytes) { return Accepts(bytes); }, deadline_, reply);
  if (error == 0) Arrived(exchange.Arrival());
  return error;
}

std::int32_t TimeQuery::AskOverTcp(Bytes& reply) {
  ConnectionPlan plan;
  plan.host = settings_.server;
  plan.port = settings_.port;
  plan.wait = settings_.timeout;
  plan.lookup = Lookups();
  if (!PlanProxy(proxy_, plan)) return kErrInvalidArgument;
  TcpTimeExchange exchange([this] { return Begin(); },
                           [this] {
                             // The time protocol's server may answer as soon as it is connected to,
                             // before Begin is due.
                             if (begun_ == TimePoint()) Begin();
                             Arrived(Now());
                           },
                           mark_);
  const std::int32_t error = exchange.Run(plan);
  reply = exchange.TakeReply();
  if (!Accepts(reply)) reply.clear();
  return error;
}

std::int32_t TimeQuery::NameReference(std::int32_t ip, std::string& text) {
  const std::string address = FormatDotted(ip);
  if (!settings_.referenceName) {
    text = address;
    return 0;
  }
  const TimePoint limit = std::min(deadline_, SecondsFromNow(kSecondsForName));
  const LookupAnswer name = DefaultHostLookup().Lookup(address, Lookups(), mark_, limit);
  text = address + " (" + name.text + ")";
  return name.error == kErrCancelled ? kErrCancelled : 0;
}

}  // namespace netro
