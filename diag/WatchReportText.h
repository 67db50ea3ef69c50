// What a watcher's mails and webhooks say. Pure text. Thread: any.
#pragma once

#include <string>

#include "diag/WatchReports.h"

namespace netro {

/// What the host is now: "down", "up", "unreachable", "flapping", "settled", "still down".
const char* WatchReportWord(const WatchReport& report);
std::string WatchReportSubject(const WatchReport& report, const WatchSettings& settings);
std::string WatchReportText(const WatchReport& report, const WatchSettings& settings);
/// One object (RFC 8259) on one line; docs/watch.md lists its members.
std::string WatchReportJson(const WatchReport& report);

}  // namespace netro
