// The format of a watcher's state file: lines of a word and its values, an empty line never, and
// "end" with the number of hosts as the last one. Pure text; who reads it trusts none of it.
// Thread: any.
//
//   netro-watch 1
//   host Web site                      and what follows belongs to it
//   at http://192.0.2.1/
//   kind http
//   state 2 0 5 -1                     a WatchedStateEnum, successes and failures in a row, ms
//   dates LAST-PROBE SINCE             "-": none
//   answer HTTP answer: 500 Oops
//   failure HTTP answer: 500 Oops
//   judgement ...
//   past 2                             a WatchHistory::State
//   times 12 11 -1
//   hour 1111111 3600 0 12 0 11 13 144 number, seconds up and down, probes, failed, least, most,
//   sum day 46296 3600 0 12 0 11 13 144 outage BEGIN END reason other KEY ... belongs to no host
//   end 1
//
// In texts "\\" stands for a backslash, "\n" and "\r" for the ends of lines.
#pragma once

#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "diag/WatchHistory.h"
#include "diag/WatchState.h"

namespace netro {

struct WatchStateContent {
  std::vector<std::pair<WatchMemory, WatchHistory>> hosts;
  std::vector<std::pair<std::string, std::string>> others;
};

std::string WatchStateBegin();
void AppendWatchHost(std::string& text, const WatchMemory& memory, const WatchHistory& history);
void AppendWatchOther(std::string& text, const std::string& key, const std::string& value);
std::string WatchStateEnd(std::size_t hosts);

/// Returns 0 when all of it is sound, else the number of the first line that is not, from 1.
std::size_t ParseWatchState(std::string_view text, WatchStateContent& content);

}  // namespace netro
