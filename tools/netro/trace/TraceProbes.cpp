// The probes of "netro trace". They go out round by round, one for each hop, a little apart: so a
// near destination stops the sending before it gets requests for hops behind it, and a router that
// limits how fast it answers is asked with pauses.

#include "trace/TraceProbes.h"

#include <algorithm>
#include <cmath>
#include <iterator>
#include <utility>

#include "terminal/EchoText.h"

namespace netro::tool {
namespace {

constexpr std::int32_t kPaceMilliseconds = 4;
// Once the destination has answered, others who answer at all do so within this time, or within so
// many times the slowest round trip.
constexpr std::int32_t kLeastWaitMilliseconds = 1000;
constexpr std::int32_t kPatience = 5;

constexpr std::int32_t kRefusals[] = {11002, 11003, 11004, 11005, 11012};

}  // namespace

// That this system had no room for a probe says nothing about the way.
bool IsTraceRefusal(const std::string& host, std::int32_t status) {
  constexpr std::int32_t kNoResources = 11006;
  const bool ownSystem = host.empty() && status != kTraceTimedOut && status != kNoResources;
  return ownSystem || std::ranges::find(kRefusals, status) != std::end(kRefusals);
}

std::int32_t TraceStatus(const EchoAnswer& answer, const std::string& destination,
                         EchoProbeEnum probe) {
  constexpr std::int32_t kNobodyListens = 11005;
  const bool isReply = probe == EchoProbeUDP && answer.Status == kNobodyListens;
  return isReply && answer.Host == destination ? 0 : answer.Status;
}

TraceProbes::TraceProbes(std::string address, const TraceOptions& options,
                         std::function<void(const std::string& host)> answered)
    : address_(std::move(address)),
      options_(options),
      answered_(std::move(answered)),
      hops_(static_cast<std::size_t>(options.maxHops)),
      end_(hops_.size()) {
  for (TraceHop& hop : hops_) hop.probes.resize(static_cast<std::size_t>(options.probes));
  echo_.Events(this);
  echo_.Probe(options_.probe);
  echo_.Port(options_.port);
  pace_.emplace(kPaceMilliseconds, [this] { SendNext(); });
  SendNext();
}

void TraceProbes::SendNext() {
  while (next_ % hops_.size() >= end_) ++next_;
  const Position position{next_ % hops_.size(), next_ / hops_.size()};
  if (position.probe == hops_.front().probes.size()) {
    pace_.reset();
    LimitWait();
    return;
  }
  const auto ttl = static_cast<std::int32_t>(position.hop + 1);
  const auto milliseconds = static_cast<std::int32_t>(std::lround(options_.timeout * 1000));
  const std::int32_t id = echo_.Send(address_, ttl, options_.size, milliseconds);
  if (id == 0) {
    error_ = echo_.LastErr();
    pace_.reset();
    return;
  }
  inFlight_[id] = position;
  ++next_;
}

void TraceProbes::Answer(const EchoAnswer& answer) {
  const Position position = inFlight_.extract(answer.Id).mapped();
  TraceHop& hop = hops_[position.hop];
  TraceProbe& probe = hop.probes[position.probe];
  probe = {answer.Host, answer.MicroSeconds, TraceStatus(answer, address_, options_.probe),
           answer.Labels, IsFiltered(answer)};
  ++hop.ended;
  slowest_ = std::max(slowest_, answer.MicroSeconds);
  reached_ = reached_ || answer.Host == address_;
  if (!answer.Host.empty()) answered_(answer.Host);
  if (IsEnd(probe)) EndAt(position.hop);
  CountKnown();
  LimitWait();
}

void TraceProbes::CountKnown() {
  while (known_ < end_ && hops_[known_].ended == options_.probes) ++known_;
}

void TraceProbes::LimitWait() {
  if (!reached_ || pace_ || limit_ || IsDone()) return;
  const std::int32_t wait = std::max(kLeastWaitMilliseconds, slowest_ / 1000 * kPatience);
  limit_.emplace(wait, [this] { GiveUp(); });
}

void TraceProbes::GiveUp() {
  limit_.reset();
  for (const auto& [id, position] : inFlight_) {
    echo_.Cancel(id);
    hops_[position.hop].probes[position.probe].status = kTraceTimedOut;
    ++hops_[position.hop].ended;
  }
  inFlight_.clear();
  CountKnown();
}

bool TraceProbes::IsEnd(const TraceProbe& probe) const {
  return probe.host == address_ || IsTraceRefusal(probe.host, probe.status);
}

void TraceProbes::EndAt(std::size_t hop) {
  end_ = std::min(end_, hop + 1);
  std::erase_if(inFlight_, [this](const auto& flight) {
    const bool behind = flight.second.hop >= end_;
    if (behind) echo_.Cancel(flight.first);
    return behind;
  });
}

std::int32_t TraceProbes::Error() const {
  if (error_ != 0) return error_;
  std::int32_t error = kTraceTimedOut;
  for (const TraceProbe& probe : hops_[end_ - 1].probes) {
    if (probe.host == address_) return 0;
    error = error == kTraceTimedOut ? probe.status : error;
  }
  return error;
}

}  // namespace netro::tool
