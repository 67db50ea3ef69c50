#include "diag/WatchSettings.h"

#include <algorithm>
#include <charconv>
#include <utility>

#include "diag/WatchShown.h"
#include "platform/Address.h"
#include "support/ProfileFile.h"
#include "support/Text.h"

namespace netro {
namespace {

constexpr std::int32_t kShortestUpDelay = 300;
constexpr std::int32_t kShortestDownDelay = 10;
constexpr std::int32_t kMostWindow = 1000;

// A value that is no number counts as not given.
std::int32_t Number(const ProfileFile& file, const char* section, const char* key,
                    std::int32_t standard, std::int32_t least) {
  const std::string text = file.Value(section, key).value_or("");
  std::int32_t value = standard;
  std::from_chars(text.data(), text.data() + text.size(), value);
  return std::max(value, least);
}

std::string TextOf(const ProfileFile& file, const char* key, const char* standard) {
  return file.Value("Settings", key).value_or(standard);
}

void ReadNumbers(const ProfileFile& file, WatchSettings& to) {
  to.playSonarSound = Number(file, "PingSettings", "PlaySonarSound", 0, -1) != 0;
  to.timeout = Number(file, "PingSettings", "Timeout", 300, 1);
  to.packetSize = Number(file, "PingSettings", "PacketSize", 32, 0);
  to.upDelay = Number(file, "Settings", "UpDelay", kShortestUpDelay, kShortestUpDelay);
  to.downDelay = Number(file, "Settings", "DownDelay", kShortestDownDelay, kShortestDownDelay);
  to.up.count = Number(file, "Settings", "UpCycle", 5, 1);
  to.down.count = Number(file, "Settings", "DownCycle", 5, 1);
  to.httpTimeout = Number(file, "Settings", "HTTPTimeout", 30, 1);
}

std::string At(std::size_t line, const std::string& what) {
  return "Can not read settings. Line " + std::to_string(line) + ": " + what;
}

// Whoever gives one of these wants it: a slip of the pen is told.
struct StrictNumber {
  const char* key;
  std::int32_t least;
  std::int32_t most;
  std::int32_t& value;
};

bool ReadWhole(std::string_view text, std::int32_t& value) {
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
  return error == std::errc() && end == text.data() + text.size();
}

std::string ReadStrictNumbers(const ProfileFile& file, WatchSettings& to) {
  constexpr std::int32_t kYear = 366 * 86'400;
  const StrictNumber kNumbers[] = {
      {"UpWindow", 0, kMostWindow, to.up.window},
      {"DownWindow", 0, kMostWindow, to.down.window},
      {"FlapChanges", 0, kMostWindow, to.flapChanges},
      {"FlapWindow", 1, kYear, to.flapWindow},
      {"RemindAfter", 0, kYear, to.remindAfter},
      {"GroupSeconds", 0, 3600, to.groupSeconds},
      {"ProgramTimeout", 1, 86'400, to.programTimeout},
  };
  for (const StrictNumber& number : kNumbers) {
    const auto text = file.Value("Settings", number.key);
    if (!text || text->empty()) continue;
    if (ReadWhole(*text, number.value) && number.value >= number.least &&
        number.value <= number.most) {
      continue;
    }
    return At(file.LineOf("Settings", number.key), "'" + *text + "' is no number from " +
                                                       std::to_string(number.least) + " to " +
                                                       std::to_string(number.most) + ".");
  }
  return {};
}

// A rule that can never be met would keep silent for ever.
std::string CheckRules(const ProfileFile& file, const WatchSettings& settings) {
  const auto bad = [](const WatchRule& rule) {
    return rule.window != 0 && rule.window < rule.count;
  };
  for (const char* key : {"UpWindow", "DownWindow"}) {
    if (bad(key[0] == 'U' ? settings.up : settings.down)) {
      return At(file.LineOf("Settings", key), std::string(key) + " is less than its cycle.");
    }
  }
  return {};
}

// "22:00"
bool ReadMinute(std::string_view text, std::int32_t& minute) {
  const std::size_t colon = text.find(':');
  std::int32_t hours = 0;
  std::int32_t minutes = 0;
  if (colon == text.npos || !ReadWhole(text.substr(0, colon), hours) ||
      !ReadWhole(text.substr(colon + 1), minutes)) {
    return false;
  }
  minute = hours * 60 + minutes;
  return hours >= 0 && hours < 24 && minutes >= 0 && minutes < 60;
}

std::string ReadQuietHours(const ProfileFile& file, WatchHours& to) {
  const std::string text = file.Value("Settings", "QuietHours").value_or("");
  if (text.empty()) return {};
  const std::size_t line = text.find('-');
  const std::string_view view = text;
  const bool isRead = line != std::string::npos &&
                      ReadMinute(Trimmed(view.substr(0, line)), to.from) &&
                      ReadMinute(Trimmed(view.substr(line + 1)), to.to);
  if (isRead) return {};
  return At(file.LineOf("Settings", "QuietHours"), "'" + text + "' are no hours, as 22:00-06:00.");
}

void ReadTexts(const ProfileFile& file, WatchSettings& to) {
  to.upLogMsg = TextOf(file, "UpLogMsg", "SenderHostName$: Name$ is up again!");
  to.downLogMsg =
      TextOf(file, "DownLogMsg", "SenderHostName$: Name$ could not be reached! ErrorDump$");
  to.upSubject = TextOf(file, "UpSubject", "SenderHostName$: HostUp Info for Name$");
  to.downSubject = TextOf(file, "DownSubject", "SenderHostName$: HostDown Info for Name$");
  to.upActionMsg =
      TextOf(file, "UpActionMsg",
             "SenderHostName$: UpCycle$ connects in a row to Name$ successfull after 'DownAction'. "
             "Retry in UpDelay$ seconds.");
  to.downActionMsg = TextOf(file, "DownActionMsg",
                            "SenderHostName$: DownCycle$ connects in a row to Name$ failed. Retry "
                            "in DownDelay$ seconds. ErrorDump$");
  to.recipients = TextOf(file, "Recipients", "");
  to.sender = TextOf(file, "Sender", "");
  to.mailServer = TextOf(file, "MailServer", "");
  to.uplink = TextOf(file, "Uplink", "");
  to.logFile = TextOf(file, "LogFile", "");
  to.stateFile = TextOf(file, "StateFile", "");
  to.spoolFolder = TextOf(file, "SpoolFolder", "");
}

// The parts between the first bars: at most `most`, the last with the bars that are left.
std::vector<std::string> Parts(std::string_view text, std::size_t most) {
  std::vector<std::string> parts;
  while (parts.size() + 1 < most) {
    const std::size_t bar = text.find('|');
    if (bar == text.npos) break;
    parts.push_back(Trim(text.substr(0, bar)));
    text.remove_prefix(bar + 1);
  }
  parts.push_back(Trim(text));
  return parts;
}

// Words separated by blanks; blanks inside double quotes belong to their word.
std::vector<std::string> SplitParameters(std::string_view text) {
  std::vector<std::string> words;
  bool inQuotes = false;
  bool inWord = false;
  for (const char c : text) {
    if (!inQuotes && (c == ' ' || c == '\t')) {
      inWord = false;
      continue;
    }
    if (!std::exchange(inWord, true)) words.emplace_back();
    if (c == '"') {
      inQuotes = !inQuotes;
    } else {
      words.back() += c;
    }
  }
  return words;
}

bool IsWebhook(const std::string& url, bool hasTls) {
  return StartsWithIgnoreCase(url, "http://") || (hasTls && StartsWithIgnoreCase(url, "https://"));
}

bool ReadAction(const std::string& text, bool hasTls, WatchAction& action) {
  const std::vector<std::string> parts = Parts(text, 3);
  if (EqualsIgnoreCase(parts[0], "mail")) {
    action.kind = WatchAction::Mail;
  } else if (EqualsIgnoreCase(parts[0], "log")) {
    action.kind = WatchAction::Log;
  } else if (EqualsIgnoreCase(parts[0], "run") && parts.size() > 1 && !parts[1].empty()) {
    action.kind = WatchAction::Run;
    action.program = parts[1];
    if (parts.size() > 2) action.parameters = SplitParameters(parts[2]);
  } else if (EqualsIgnoreCase(parts[0], "webhook")) {
    action.kind = WatchAction::Webhook;
    action.program = Parts(text, 2).back();
    return parts.size() > 1 && IsWebhook(action.program, hasTls);
  } else {
    return false;
  }
  return true;
}

std::string ReadActions(const ProfileFile& file, const char* section, bool hasTls,
                        std::vector<WatchAction>& actions) {
  for (const std::string& key : file.Keys(section)) {
    const std::string value = *file.Value(section, key);
    if (value.empty()) continue;
    WatchAction action;
    if (!ReadAction(value, hasTls, action)) {
      return std::string("Can not read settings. '") + WithoutUserInfo(value) + "' in section '" +
             section + "' is no action.";
    }
    actions.push_back(std::move(action));
  }
  return {};
}

std::string ReadTargets(const ProfileFile& file, bool hasTls, std::vector<WatchTarget>& targets) {
  constexpr char kHosts[] = "HostNames";
  const std::size_t second = file.RepeatedSection(kHosts);
  if (second != 0) return At(second, "a second list of hosts.");
  const std::size_t repeated = file.RepeatedKey(kHosts);
  if (repeated != 0) return At(repeated, "a host of this name is in the list already.");
  for (const std::string& key : file.Keys(kHosts)) {
    WatchTarget target;
    target.name = key;
    const std::string problem = ReadWatchTarget(*file.Value(kHosts, key), hasTls, target);
    if (!problem.empty()) return At(file.LineOf(kHosts, key), problem);
    if (!target.host.empty()) targets.push_back(std::move(target));
  }
  return {};
}

std::string ReadParents(const ProfileFile& file, const WatchMeans& means, WatchSettings& to) {
  constexpr char kParents[] = "Parents";
  for (WatchTarget& target : to.targets) {
    target.parent = file.Value(kParents, target.name).value_or("");
  }
  if (means.ownHosts) return {};  // which are not known here
  for (const std::string& key : file.Keys(kParents)) {
    if (file.LineOf("HostNames", key) != 0) continue;
    return At(file.LineOf(kParents, key), "'" + key + "' is not in the list of hosts.");
  }
  std::string why;
  const std::size_t bad = FindBadParent(to.targets, to.uplink, why);
  if (bad == to.targets.size()) return {};
  const std::string& name = to.targets[bad].name;
  return At(file.LineOf(kParents, name), "'" + name + "'" + why);
}

std::string CheckMailServer(const ProfileFile& file, const std::string& server) {
  std::string host;
  std::int32_t port = 0;
  if (server.empty() || SplitEndpoint(server, host, port)) return {};
  return At(file.LineOf("Settings", "MailServer"), "'" + server + "' is no host, as host:port.");
}

std::string CheckUplink(const ProfileFile& file, const WatchMeans& means,
                        const WatchSettings& settings) {
  const bool isThere = FindWatchTarget(settings.targets, settings.uplink) < settings.targets.size();
  if (settings.uplink.empty() || isThere || means.ownHosts) return {};
  return At(file.LineOf("Settings", "Uplink"),
            "'" + settings.uplink + "' is not in the list of hosts.");
}

}  // namespace

std::string ReadWatchSettings(std::string_view text, const WatchMeans& means,
                              WatchSettings& settings) {
  settings = WatchSettings();
  const ProfileFile file = ProfileFile::Parse(text);
  ReadNumbers(file, settings);
  ReadTexts(file, settings);
  std::string error = ReadStrictNumbers(file, settings);
  if (error.empty()) error = CheckRules(file, settings);
  if (error.empty()) error = ReadQuietHours(file, settings.quietHours);
  if (error.empty()) error = ReadActions(file, "UpActions", means.hasTls, settings.upActions);
  if (error.empty()) error = ReadActions(file, "DownActions", means.hasTls, settings.downActions);
  if (!error.empty()) return error;
  if (settings.upActions.empty() && settings.downActions.empty() && !means.ownReports) {
    return "Neither a DownActions nor a UpAction is defined.";
  }
  error = ReadTargets(file, means.hasTls, settings.targets);
  if (error.empty()) error = ReadParents(file, means, settings);
  if (error.empty()) error = CheckUplink(file, means, settings);
  if (error.empty()) error = CheckMailServer(file, settings.mailServer);
  if (!error.empty()) return error;
  return settings.targets.empty() && !means.ownHosts ? "No Hosts to observe found." : "";
}

}  // namespace netro
