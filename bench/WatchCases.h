// Rounds of the host watcher over many hosts: time, processor time and memory.
#pragma once

namespace netro::bench {

void AddWatchCases();

}  // namespace netro::bench
