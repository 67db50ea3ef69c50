// The work of "netro ping".

#include "ping/Pinger.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>

#include "terminal/EchoText.h"
#include "terminal/HostAddress.h"

namespace netro::tool {
namespace {

constexpr std::int32_t kCancelled = 9999;

void SetError(PingTarget& target, std::int32_t number) {
  target.errorNumber = number;
  target.errorText = EchoStatusText(number);
}

std::int32_t ToMilliSeconds(double seconds) {
  return static_cast<std::int32_t>(std::lround(seconds * 1000));
}

}  // namespace

Pinger::Pinger(const PingOptions& options, PingListener& listener)
    : options_(options), listener_(listener) {
  for (const std::string& host : options.hosts) targets_.emplace_back().host = host;
  loop_.Names().DNSURL(options.dns);
  loop_.Names().AddressPreference(options.preference);
  echo_.Events(this);
}

void Pinger::Run() {
  for (PingTarget& target : targets_) LookUp(target);
  SendRound();
  loop_.RunUntil([this] { return IsDone(); });
  timer_.reset();
}

void Pinger::LookUp(PingTarget& target) {
  if (IsStopped() && !loop_.Names().IsIPNumber(target.host)) {
    SetError(target, kCancelled);
    return;
  }
  HostAddress found = FindAddress(loop_.Names(), target.host);
  target.address = std::move(found.address);
  target.errorNumber = found.error;
  target.errorText = std::move(found.errorText);
  if (target.address.empty()) listener_.NotFound(target);
}

void Pinger::SendRound() {
  for (std::size_t i = 0; i < targets_.size() && !IsStopped() && !isForbidden_; ++i) {
    if (!targets_[i].address.empty()) SendTo(i);
  }
  ++rounds_;
  if (rounds_ == options_.count) {
    timer_.reset();
  } else if (!timer_) {
    timer_.emplace(ToMilliSeconds(options_.interval), [this] { SendRound(); });
  }
}

void Pinger::SendTo(std::size_t index) {
  PingTarget& target = targets_[index];
  const std::int32_t id =
      echo_.Send(target.address, 0, options_.size, ToMilliSeconds(options_.timeout));
  isForbidden_ = echo_.LastErr() == kEchoForbidden;
  if (isForbidden_) return;
  if (++target.sent == 1) listener_.Begun(target);
  if (id != 0) {
    requests_[id] = {index, target.sent};
  } else {
    Note(target, {target.sent, std::abs(echo_.LastErr()), "", 0, 0});
  }
}

void Pinger::Reply(std::int32_t id, const std::string& host, std::int32_t microSeconds,
                   std::int32_t status, std::int32_t ttl) {
  const auto request = requests_.extract(id);
  if (request.empty()) return;
  const auto [target, sequence] = request.mapped();
  Note(targets_[target], {sequence, status, host, microSeconds, ttl});
}

void Pinger::Note(PingTarget& target, PingReply reply) {
  if (reply.status == 0) {
    answeredHosts_ += target.HasAnswered() ? 0 : 1;
    target.times.Add(reply.microSeconds);
  } else {
    ++target.failed;
    SetError(target, reply.status);
  }
  isEnough_ = !listener_.Ended(target, reply) || isEnough_;
  if (options_.json && !options_.quiet) target.replies.push_back(std::move(reply));
}

bool Pinger::IsDone() const {
  const bool isLookedUp = std::ranges::any_of(
      targets_, [](const PingTarget& target) { return !target.address.empty(); });
  const bool isSent = options_.count != 0 && rounds_ >= options_.count;
  return isForbidden_ || isEnough_ || !isLookedUp || (isSent && requests_.empty());
}

}  // namespace netro::tool
