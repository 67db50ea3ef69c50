// The settings file of a host watcher, read into values; docs/watch.md describes it. Pure text, no
// file is touched. Thread: any.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "diag/WatchTarget.h"

namespace netro {

struct WatchAction {
  enum Kind { Mail, Log, Run, Webhook } kind = Log;
  std::string program;                  // or the URL of a webhook
  std::vector<std::string> parameters;  // still with their placeholders
};

/// So many of the last `window` probes; a window of 0: in a row.
struct WatchRule {
  std::int32_t count = 5;
  std::int32_t window = 0;
};

/// A part of each day, in minutes since midnight of local time; it may span midnight. None when
/// both are the same.
struct WatchHours {
  std::int32_t from = 0;
  std::int32_t to = 0;

  bool Has(std::int32_t minute) const {
    return from <= to ? minute >= from && minute < to : minute >= from || minute < to;
  }
};

struct WatchSettings {
  bool playSonarSound = false;
  std::int32_t timeout = 300;  // milliseconds, of an echo
  std::int32_t packetSize = 32;
  std::int32_t upDelay = 300;  // seconds
  std::int32_t downDelay = 10;
  WatchRule up;
  WatchRule down;
  std::int32_t flapChanges = 0;  // 0: hosts do not flap
  std::int32_t flapWindow = 3600;
  std::string uplink;  // name of a host
  WatchHours quietHours;
  std::int32_t remindAfter = 0;  // seconds; 0: never
  std::int32_t groupSeconds = 5;
  std::int32_t programTimeout = 60;
  std::int32_t httpTimeout = 30;  // seconds, of all probes but echoes
  std::string logFile;            // empty: beside the settings
  std::string stateFile;          // empty: none
  std::string spoolFolder;        // empty: none
  std::string upLogMsg;
  std::string downLogMsg;
  std::string upSubject;
  std::string downSubject;
  std::string upActionMsg;
  std::string downActionMsg;
  std::string recipients;
  std::string sender;
  std::string mailServer;
  std::vector<WatchTarget> targets;
  std::vector<WatchAction> upActions;
  std::vector<WatchAction> downActions;
};

/// What the program that reads a settings file brings with it.
struct WatchMeans {
  bool hasTls = false;      // for https
  bool ownReports = false;  // the file needs no action
  bool ownHosts = false;    // the file needs no host
};

/// Reads the text of a settings file. Returns the empty text, or what makes it unusable.
std::string ReadWatchSettings(std::string_view text, const WatchMeans& means,
                              WatchSettings& settings);

/// What the placeholders of a message stand for besides the settings.
struct WatchFacts {
  std::string senderHostName;
  std::string name;
  std::string host;
  std::string errorDump;
};

/// Fills the placeholders ("Name$", "ErrorDump$" ...) of a message text. What is put in is not
/// searched again, but for the texts that are settings themselves.
std::string FillWatchText(const std::string& text, const WatchSettings& settings,
                          const WatchFacts& facts);

}  // namespace netro
