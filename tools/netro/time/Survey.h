// "netro time A B C": several servers at the same time with TimeSurveyCls.
#pragma once

#include "time/TimeOptions.h"

namespace netro::tool {

/// Asks the servers and prints what they have come to. Returns the exit status.
int RunSurvey(const SurveyRequest& request);

}  // namespace netro::tool
