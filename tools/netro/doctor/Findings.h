// What "netro doctor" finds: one value for each step, from which the text, the JSON object and the
// verdict are made. Thread: the loop's.
#pragma once

#include <string>
#include <vector>

namespace netro::tool {

enum class FindingState {
  Fine,
  Skipped,  // not tried; `seen` says why
  Suspect,  // may be so in good health, but is the cause when something above it stays silent
  Partly,   // broken, but the way up goes on
  Broken,   // nothing above it can work
};

struct Finding {
  std::string layer;
  FindingState state = FindingState::Fine;
  std::string tried;
  std::string seen;
  std::string next;          // what to do, empty where nothing is
  bool isSilent = false;     // nobody answered: the cause may be below
  bool isAboutTime = false;  // the cause may be a wrong clock
  double seconds = 0;        // since the finding before
};

/// The layer that is broken, or null when all are fine.
const Finding* VerdictOf(const std::vector<Finding>& findings);

/// "port is broken: TCP to 192.0.2.1:80: refused"
std::string VerdictText(const Finding* verdict);

/// "broken"
const char* NameOf(FindingState state);

}  // namespace netro::tool
