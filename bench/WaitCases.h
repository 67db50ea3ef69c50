// Processor time of a call that waits.
#pragma once

namespace netro::bench {

void AddWaitCases();

}  // namespace netro::bench
