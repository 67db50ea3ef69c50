// The probes of "netro trace --live" and "--report".

#include "trace/LiveTrace.h"

#include <algorithm>
#include <cmath>
#include <utility>

#include "terminal/EchoText.h"

namespace netro::tool {
namespace {

constexpr std::int32_t kMostSilent = 3;        // probes for the destination, in a row
constexpr std::int32_t kPaceMilliseconds = 4;  // routers limit their answers

std::int32_t ToMilliseconds(double seconds) {
  return static_cast<std::int32_t>(std::lround(seconds * 1000));
}

}  // namespace

LiveTrace::LiveTrace(std::string address, const TraceOptions& options,
                     std::function<void(const std::string& host)> answered)
    : address_(std::move(address)),
      options_(options),
      answered_(std::move(answered)),
      hops_(static_cast<std::size_t>(options.maxHops)),
      end_(hops_.size()),
      latestStatus_(kTraceTimedOut) {
  echo_.Events(this);
  echo_.Probe(options_.probe);
  echo_.Port(options_.port);
  BeginCycle();
  cycle_.emplace(ToMilliseconds(options_.interval), [this] { BeginCycle(); });
}

std::size_t LiveTrace::AskedHops() const { return refusal_ ? std::min(end_, *refusal_ + 1) : end_; }

std::size_t LiveTrace::ShownHops() const {
  if (reached_ || refusal_) return AskedHops();
  std::size_t shown = 0;
  for (std::size_t i = 0; i < end_; ++i) {
    if (!hops_[i].routers.empty()) shown = i + 1;
  }
  return std::min(shown + 1, end_);
}

bool LiveTrace::IsDone() const {
  const bool allSent = options_.cycles != 0 && cycles_ >= options_.cycles && !pace_;
  return error_ != 0 || (allSent && inFlight_.empty());
}

/// A cycle that takes longer than the interval is not cut short.
void LiveTrace::BeginCycle() {
  if (pace_ || (options_.cycles != 0 && cycles_ >= options_.cycles)) return;
  ++cycles_;
  next_ = 0;
  pace_.emplace(kPaceMilliseconds, [this] { SendNext(); });
  SendNext();
}

void LiveTrace::SendNext() {
  if (next_ >= AskedHops()) {
    pace_.reset();
    return;
  }
  const std::size_t index = next_++;
  const std::int32_t id = echo_.Send(address_, static_cast<std::int32_t>(index + 1), options_.size,
                                     ToMilliseconds(options_.timeout));
  if (id == 0) {
    error_ = echo_.LastErr();
    pace_.reset();
    cycle_.reset();
    return;
  }
  ++hops_[index].sent;
  inFlight_[id] = index;
}

void LiveTrace::Answer(const EchoAnswer& answer) {
  const auto flight = inFlight_.extract(answer.Id);
  if (flight.empty()) return;
  const std::size_t index = flight.mapped();
  Note(hops_[index], answer);
  FindEnd(index, answer);
  if (!answer.Host.empty()) answered_(answer.Host);
}

void LiveTrace::Note(LiveHop& hop, const EchoAnswer& answer) {
  ++hop.ended;
  const std::int32_t status = TraceStatus(answer, address_, options_.probe);
  latestStatus_ = status == kTraceTimedOut ? latestStatus_ : status;
  if (options_.json) {
    hop.probes.push_back(
        {answer.Host, answer.MicroSeconds, status, answer.Labels, IsFiltered(answer)});
  }
  const bool usual = status == 0 || status == kTraceExpired || status == kTraceTimedOut;
  hop.failure = usual ? "" : EchoAnswerText(status, IsFiltered(answer));
  if (answer.Host.empty()) return;
  hop.last = answer.MicroSeconds;
  hop.times.Add(answer.MicroSeconds);
  auto router = std::ranges::find(hop.routers, answer.Host, &LiveHop::Router::address);
  if (router == hop.routers.end()) {
    router = hop.routers.insert(hop.routers.end(), {answer.Host, {}});
  }
  router->labels = answer.Labels;
}

/// What was known behind it is of another way.
void LiveTrace::LookFurther() {
  reached_ = false;
  std::fill(hops_.begin() + static_cast<std::ptrdiff_t>(end_), hops_.end(), LiveHop());
  end_ = hops_.size();
}

/// The way may have become longer: where the destination was, a router answers now, or nobody for a
/// while. A router's refusal counts until it says otherwise.
void LiveTrace::FindEnd(std::size_t index, const EchoAnswer& answer) {
  if (reached_ && index + 1 == end_) {
    silent_ = answer.Host == address_ ? 0 : silent_ + 1;
    if (answer.Status == kTraceExpired || silent_ == kMostSilent) LookFurther();
  }
  if (answer.Host == address_) {
    reached_ = true;
    silent_ = 0;
    end_ = std::min(end_, index + 1);
  } else if (IsTraceRefusal(answer.Host, answer.Status)) {
    refusal_ = std::min(refusal_.value_or(index), index);
  }
  const bool goesOn = answer.Host == address_ || answer.Status == kTraceExpired;
  if (goesOn && refusal_ && index >= *refusal_) refusal_.reset();
  std::erase_if(inFlight_, [this](const auto& flight) {
    const bool isBehind = flight.second >= end_;
    if (isBehind) echo_.Cancel(flight.first);
    return isBehind;
  });
}

std::int32_t LiveTrace::Error() const {
  if (error_ != 0) return error_;
  return reached_ ? 0 : latestStatus_;
}

}  // namespace netro::tool
