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

/// What silence comes from: the lowest layer of which nothing works, or else the last doubt.
const Finding* CauseOf(Place begin, Place end) {
  const Finding* last = nullptr;
  for (Place place = begin; place != end; ++place) {
    if (place->state != FindingState::Suspect && place->state != FindingState::Partly) continue;
    const bool worksInPart = std::any_of(begin, end, [place](const Finding& other) {
      return other.layer == place->layer && other.state == FindingState::Fine;
    });
    last = &*place;
    if (!worksInPart) break;
  }
  return last;
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
  const Finding* cause = broken->isSilent ? CauseOf(BehindName(begin, broken), broken) : nullptr;
  return cause != nullptr ? cause : &*broken;
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
