#include <netro/testkit/TimeServer.h>

#include <cstdint>
#include <utility>

namespace netro::testkit {
namespace {

std::pair<std::uint32_t, std::uint32_t> StampOf(std::chrono::system_clock::time_point time) {
  const auto since = time.time_since_epoch();
  const auto seconds = std::chrono::floor<std::chrono::seconds>(since);
  const auto rest = std::chrono::duration_cast<std::chrono::nanoseconds>(since - seconds);
  return {
      static_cast<std::uint32_t>(static_cast<std::uint64_t>(seconds.count()) + kTimeOf1970),
      static_cast<std::uint32_t>((static_cast<std::uint64_t>(rest.count()) << 32) / 1'000'000'000)};
}

}  // namespace

TimeServer::TimeServer(std::chrono::milliseconds ahead, Change change)
    : ahead_(ahead), change_(std::move(change)) {
  do {  // until a free port of TCP is one of UDP as well
    tcp_ = std::make_unique<LoopbackServer>([this](Connection& connection, std::size_t) {
      const auto now = StampOf(std::chrono::system_clock::now() + ahead_);
      connection.Give({Big32(now.first), After::Close});
    });
    udp_ = std::make_unique<DatagramServer>(
        [this](const std::string& request) -> DatagramServer::Replies {
          std::string reply = ReplyTo(request);
          if (reply.empty()) return {};
          return {std::move(reply)};
        },
        Port());
  } while (!udp_->IsUp());
}

std::string TimeServer::ReplyTo(const std::string& request) const {
  const auto [seconds, fraction] = StampOf(std::chrono::system_clock::now() + ahead_);
  if (request.size() < 48 && !change_) return Big32(seconds);
  TimeReply reply = TimeReply().Stratum(1).Id("TEST").Reference(seconds);
  reply.Originate(TransmitOf(request)).Receive(seconds, fraction).Transmit(seconds, fraction);
  return change_ ? change_(reply) : reply.Bytes();
}

}  // namespace netro::testkit
