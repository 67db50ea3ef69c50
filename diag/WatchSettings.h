// The settings file of a host watcher, read into values; docs/watch.md describes it. Pure text, no
// file is touched. Thread: any.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace netro {

struct WatchTarget {
  std::string name;
  std::string host;  // name, address or URL
  bool http = false;

  bool operator==(const WatchTarget&) const = default;
};

struct WatchAction {
  enum Kind { Mail, Log, Run } kind = Log;
  std::string program;
  std::vector<std::string> parameters;  // still with their placeholders
};

struct WatchSettings {
  bool playSonarSound = false;
  std::int32_t timeout = 300;  // milliseconds, of an echo
  std::int32_t packetSize = 32;
  std::int32_t upDelay = 300;  // seconds
  std::int32_t downDelay = 10;
  std::int32_t upCycle = 5;
  std::int32_t downCycle = 5;
  std::int32_t httpTimeout = 30;  // seconds
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

/// Reads the text of a settings file. Returns the empty text, or what makes it unusable.
std::string ReadWatchSettings(std::string_view text, WatchSettings& settings);

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
