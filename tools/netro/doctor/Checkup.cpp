// One run of "netro doctor".

#include "doctor/Checkup.h"

#include <netro/SocketCls.h>

#include <algorithm>
#include <utility>

#include "terminal/Encoding.h"
#include "terminal/OptionValues.h"

namespace netro::tool {

Checkup::Checkup(DoctorRequest wanted, Sink sink)
    : request(std::move(wanted)),
      host(HasProxy() ? request.proxy.host : request.target.host),
      port(HasProxy() ? request.proxy.port : request.target.port),
      isLiteral(host.find(':') != host.npos || SocketCls().IsIPNumber(host)),
      isLocal(IsLoopback(host) || host == "localhost" || host.ends_with(".localhost")),
      sink_(std::move(sink)) {}

// Texts hold names and words that come from the network.
void Checkup::Add(Finding finding) {
  if (isStopped()) return;  // what failed by Ctrl-C says nothing
  finding.tried = OnOneLine(finding.tried);
  finding.seen = OnOneLine(finding.seen);
  finding.seconds = watch_.Seconds() - std::exchange(found_, watch_.Seconds());
  findings_.push_back(std::move(finding));
  sink_(findings_.back());
}

const Finding* Checkup::Broken() const {
  const auto found = std::ranges::find(findings_, FindingState::Broken, &Finding::state);
  return found == findings_.end() ? nullptr : &*found;
}

double Checkup::Left() const { return std::max(request.options.total - watch_.Seconds(), 0.0); }

std::chrono::milliseconds Checkup::Limit() const {
  return TimeOf(std::max(std::min(request.options.timeout, Left()), 0.001));
}

}  // namespace netro::tool
