#include "web/TimeQuery.h"

#include <algorithm>

#include "platform/ErrorNumbers.h"
#include "platform/Sockets.h"
#include "socket/DatagramExchange.h"
#include "socket/HostLookup.h"
#include "socket/StreamExchange.h"

namespace netro {
namespace {

constexpr std::int32_t kSntpPort = 123;

class TcpTimeExchange final : public StreamExchange {
 public:
  using Begin = std::function<Bytes()>;
  using Accept = std::function<bool(std::span<const std::uint8_t>)>;

  TcpTimeExchange(std::size_t size, Begin begin, Accept accept, const CancelMark& mark)
      : StreamExchange(mark), size_(size), begin_(std::move(begin)), accept_(std::move(accept)) {}

  Bytes TakeReply() { return std::move(reply_); }

 private:
  std::string Request() override {
    const Bytes request = begin_();
    return {request.begin(), request.end()};
  }

  void Arrived(std::span<const std::uint8_t> bytes) override {
    reply_.insert(reply_.end(), bytes.begin(), bytes.end());
    while (reply_.size() >= size_) {
      if (accept_(std::span(reply_).first(size_))) {
        reply_.resize(size_);
        return End(0);
      }
      reply_.erase(reply_.begin(), reply_.begin() + static_cast<std::ptrdiff_t>(size_));
    }
  }

  // What came is judged by its length.
  std::int32_t PeerClosed(std::int32_t error) override {
    if (error == 0) accept_(reply_);
    return error;
  }

  const std::size_t size_;
  const Begin begin_;
  const Accept accept_;
  Bytes reply_;
};

}  // namespace

TimeQuery::TimeQuery(QueryTimeCLS& owner)
    : owner_(owner),
      call_(owner.call_),
      mark_(owner.module_, owner.call_),
      settings_(owner.settings_),
      proxy_(owner.Proxy()),
      deadline_(SecondsFromNow(owner.settings_.timeout)) {
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

// Takes the time, and makes the request that carries it.
Bytes TimeQuery::Begin() {
  exchange_.version = settings_.version;
  exchange_.sent = SystemTime();
  exchange_.localOffset = LocalTimeOffset(exchange_.sent);
  begun_ = Now();
  request_ = settings_.port == kSntpPort ? ComposeTimeRequest(exchange_) : Bytes();
  return request_;
}

// The reply's length decides how it is read; an SNTP reply to another question does not count.
bool TimeQuery::Accepts(std::span<const std::uint8_t> reply) {
  // The time protocol's server may answer as soon as it is connected to, before Begin is due.
  if (begun_ == TimePoint()) Begin();
  exchange_.roundTrip = Now() - begun_;
  return reply.size() != kSntpSize || request_.empty() || AnswersTimeRequest(reply, request_);
}

std::int32_t TimeQuery::AskOverUdp(Bytes& reply) {
  const LookupAnswer host = ResolveHost(settings_.server, Lookups(), mark_, deadline_);
  if (host.error != 0) return ConnectError(host.error);
  if (!call_->alive) return kErrCancelled;
  // Of its own: a reply to an empty request could be one to any other.
  DatagramPool sockets(mark_.Module().Notifications());
  return AskByDatagram(
      {host.First(), settings_.port}, Begin(),
      [this](std::span<const std::uint8_t> bytes) { return Accepts(bytes); }, mark_, deadline_,
      sockets, reply);
}

std::int32_t TimeQuery::AskOverTcp(Bytes& reply) {
  ConnectionPlan plan;
  plan.host = settings_.server;
  plan.port = settings_.port;
  plan.seconds = settings_.timeout;
  plan.lookup = Lookups();
  if (!PlanProxy(proxy_, plan)) return kErrInvalidArgument;
  TcpTimeExchange exchange(
      settings_.port == kSntpPort ? kSntpSize : kTimeSize, [this] { return Begin(); },
      [this](std::span<const std::uint8_t> bytes) { return Accepts(bytes); }, mark_);
  const std::int32_t error = exchange.Run(plan);
  reply = exchange.TakeReply();
  return error;
}

std::int32_t TimeQuery::NameReference(std::int32_t ip, std::string& text) {
  const std::string address = FormatDotted(ip);
  const LookupAnswer name = DefaultHostLookup().Lookup(address, Lookups(), mark_, deadline_);
  text = address + " (" + name.text + ")";
  return name.error == kErrCancelled ? kErrCancelled : 0;
}

}  // namespace netro
