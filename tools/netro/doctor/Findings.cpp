// What "netro doctor" finds.

#include "doctor/Findings.h"

#include <algorithm>

namespace netro::tool {
namespace {

using Place = std::vector<Finding>::const_iterator;

const Finding* First(Place begin, Place end, FindingState state) {
  const Place found = std::ranges::find(begin, end, state, &Finding::state);
  return found == end ? nullptr : &*found;
}

/// What lies below a name that was found has done its work.
Place BehindName(Place begin, Place end) {
  const auto isFound = [](const Finding& finding) {
    return finding.layer == "name" && finding.state == FindingState::Fine;
  };
  const Place name = std::find_if(begin, end, isFound);
  return name == end ? begin : name;
}

/// What is broken above this finding and is its cause.
const Finding* ClockBehind(Place broken, Place end) {
  if (!broken->isAboutTime) return nullptr;
  const Place clock = std::ranges::find(broken, end, "clock", &Finding::layer);
  return clock == end || clock->state != FindingState::Broken ? nullptr : &*clock;
}

}  // namespace

const Finding* VerdictOf(const std::vector<Finding>& findings) {
  const Place begin = findings.begin(), end = findings.end();
  const Place broken = std::ranges::find(begin, end, FindingState::Broken, &Finding::state);
  if (broken == end) return First(begin, end, FindingState::Partly);
  if (const Finding* clock = ClockBehind(broken, end)) return clock;
  const Finding* suspect = First(BehindName(begin, broken), broken, FindingState::Suspect);
  return broken->isSilent && suspect != nullptr ? suspect : &*broken;
}

std::string VerdictText(const Finding* verdict) {
  if (verdict == nullptr) return "every layer that was tried is fine";
  const bool partly = verdict->state == FindingState::Partly;
  return verdict->layer + " is broken" + (partly ? " in part: " : ": ") + verdict->tried + ": " +
         verdict->seen;
}

const char* NameOf(FindingState state) {
  switch (state) {
    case FindingState::Fine:
      return "ok";
    case FindingState::Skipped:
      return "skipped";
    case FindingState::Suspect:
      return "suspect";
    case FindingState::Partly:
      return "partly";
    case FindingState::Broken:
      break;
  }
  return "broken";
}

}  // namespace netro::tool
