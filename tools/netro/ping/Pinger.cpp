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
constexpr std::int32_t kLookupsAtOnce = 256;

void SetError(PingTarget& target, std::int32_t number) {
  target.errorNumber = number;
  target.errorText = EchoStatusText(number);
}

std::int32_t ToMilliSeconds(double seconds) {
  return static_cast<std::int32_t>(std::lround(seconds * 1000));
}

}  // namespace

Pinger::Pinger(const PingOptions& options, PingListener& listener)
    : options_(options), listener_(listener), lookups_(kLookupsAtOnce) {
  for (const std::string& host : options.hosts) targets_.emplace_back().host = host;
  echo_.Events(this);
  echo_.Duplicates(true);
}

void Pinger::Run() {
  if (options_.deadline > 0) {
    deadline_.emplace(ToMilliSeconds(options_.deadline), [this] {
      isOver_ = true;
      lookups_.StopWaiting();
      EndIfDone();
    });
  }
  LookUpAll();
  if (!isOver_) SendRound();
  EndIfDone();
  loop_.Run();
  timer_.reset();
  deadline_.reset();
}

/// Addresses are not worth a task.
void Pinger::LookUpAll() {
  std::vector<std::size_t> names;
  for (std::size_t i = 0; i < targets_.size(); ++i) {
    const std::string& host = targets_[i].host;
    const bool isAddress = host.find(':') != host.npos || loop_.Names().IsIPNumber(host);
    if (isAddress) {
      LookUp(targets_[i]);
    } else {
      names.push_back(i);
      SetError(targets_[i], kCancelled);  // until it has been looked up
    }
  }
  if (names.empty()) return;
  lookups_.Run(
      names.size(), [&](std::size_t i) { LookUp(targets_[names[i]]); },
      [&](std::size_t i) {
        if (targets_[names[i]].address.empty()) listener_.NotFound(targets_[names[i]]);
        return true;
      });
}

void Pinger::LookUp(PingTarget& target) {
  ICMPCls names;
  names.DNSURL(options_.dns);
  names.AddressPreference(options_.preference);
  HostAddress found = FindAddress(names, target.host);
  target.address = std::move(found.address);
  target.errorNumber = found.error;
  target.errorText = std::move(found.errorText);
}

void Pinger::SendRound() {
  ForgetOldRequests();
  for (std::size_t i = 0; i < targets_.size() && !IsStopped() && !isForbidden_; ++i) {
    if (!targets_[i].address.empty()) SendTo(i);
  }
  ++rounds_;
  if (rounds_ == options_.count) {
    timer_.reset();
  } else if (!timer_) {
    timer_.emplace(ToMilliSeconds(options_.interval), [this] {
      SendRound();
      EndIfDone();
    });
  }
}

void Pinger::SendTo(std::size_t index) {
  PingTarget& target = targets_[index];
  const std::int32_t id = echo_.Send(target.address, options_.ttl.value_or(0), options_.size,
                                     ToMilliSeconds(options_.timeout));
  isForbidden_ = echo_.LastErr() == kEchoForbidden;
  if (isForbidden_) return;
  if (++target.sent == 1) listener_.Begun(target);
  if (id != 0) {
    requests_[id] = {index, target.sent};
  } else {
    Note(target, {target.sent, std::abs(echo_.LastErr()), "", 0, 0, false, false});
  }
}

void Pinger::Answer(const EchoAnswer& answer) {
  const auto request = requests_.find(answer.Id);
  if (request == requests_.end()) return;
  const auto [target, sequence] = request->second;
  if (answer.Status != 0) {
    requests_.erase(request);
  } else if (!answer.Duplicate) {
    answered_.emplace_back(Clock::now(), answer.Id);
  }
  Note(targets_[target], {sequence, answer.Status, answer.Host, answer.MicroSeconds, answer.TTL,
                          answer.Duplicate, IsFiltered(answer)});
  EndIfDone();
}

void Pinger::ForgetOldRequests() {
  const auto old = Clock::now() - std::chrono::duration<double>(options_.timeout);
  for (; !answered_.empty() && answered_.front().first < old; answered_.pop_front()) {
    requests_.erase(answered_.front().second);
  }
}

void Pinger::Note(PingTarget& target, PingReply reply) {
  if (reply.duplicate) {
    ++target.duplicates;
  } else if (reply.status == 0) {
    answeredHosts_ += target.HasAnswered() ? 0 : 1;
    target.times.Add(reply.microSeconds);
  } else {
    ++target.failed;
    SetError(target, reply.status);
    target.errorText = EchoAnswerText(reply.status, reply.filtered);
  }
  isEnough_ = !listener_.Ended(target, reply) || isEnough_;
  if (options_.json && !options_.quiet) target.replies.push_back(std::move(reply));
}

void Pinger::EndIfDone() {
  if (IsDone()) loop_.End();
}

bool Pinger::IsDone() const {
  const bool isLookedUp = std::ranges::any_of(
      targets_, [](const PingTarget& target) { return !target.address.empty(); });
  const bool isSent = options_.count != 0 && rounds_ >= options_.count;
  return isForbidden_ || isOver_ || isEnough_ || !isLookedUp || (isSent && echo_.Pending() == 0);
}

}  // namespace netro::tool
