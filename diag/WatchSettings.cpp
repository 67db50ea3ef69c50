#include "diag/WatchSettings.h"

#include <algorithm>
#include <charconv>
#include <utility>

#include "support/ProfileFile.h"
#include "support/Text.h"

namespace netro {
namespace {

constexpr std::int32_t kShortestUpDelay = 300;
constexpr std::int32_t kShortestDownDelay = 10;

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
  to.upCycle = Number(file, "Settings", "UpCycle", 5, 1);
  to.downCycle = Number(file, "Settings", "DownCycle", 5, 1);
  to.httpTimeout = Number(file, "Settings", "HTTPTimeout", 30, 1);
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

bool ReadAction(const std::string& text, WatchAction& action) {
  const std::vector<std::string> parts = Parts(text, 3);
  if (EqualsIgnoreCase(parts[0], "mail")) {
    action.kind = WatchAction::Mail;
  } else if (EqualsIgnoreCase(parts[0], "log")) {
    action.kind = WatchAction::Log;
  } else if (EqualsIgnoreCase(parts[0], "run") && parts.size() > 1 && !parts[1].empty()) {
    action.kind = WatchAction::Run;
    action.program = parts[1];
    if (parts.size() > 2) action.parameters = SplitParameters(parts[2]);
  } else {
    return false;
  }
  return true;
}

std::string ReadActions(const ProfileFile& file, const char* section,
                        std::vector<WatchAction>& actions) {
  for (const std::string& key : file.Keys(section)) {
    const std::string value = *file.Value(section, key);
    if (value.empty()) continue;
    WatchAction action;
    if (!ReadAction(value, action)) {
      return std::string("Can not read settings. '") + value + "' in section '" + section +
             "' is no action.";
    }
    actions.push_back(std::move(action));
  }
  return {};
}

// The last bar separates the kind: a URL may hold bars.
void ReadTargets(const ProfileFile& file, std::vector<WatchTarget>& targets) {
  for (const std::string& key : file.Keys("HostNames")) {
    const std::string value = *file.Value("HostNames", key);
    const std::size_t bar = value.rfind('|');
    const std::string kind = bar == std::string::npos ? "" : Trim(value.substr(bar + 1));
    WatchTarget target{key, Trim(value.substr(0, bar)), EqualsIgnoreCase(kind, "http")};
    if (!target.host.empty()) targets.push_back(std::move(target));
  }
}

}  // namespace

std::string ReadWatchSettings(std::string_view text, WatchSettings& settings) {
  settings = WatchSettings();
  const ProfileFile file = ProfileFile::Parse(text);
  ReadNumbers(file, settings);
  ReadTexts(file, settings);
  std::string error = ReadActions(file, "UpActions", settings.upActions);
  if (error.empty()) error = ReadActions(file, "DownActions", settings.downActions);
  if (!error.empty()) return error;
  if (settings.upActions.empty() && settings.downActions.empty()) {
    return "Neither a DownActions nor a UpAction is defined.";
  }
  ReadTargets(file, settings.targets);
  return settings.targets.empty() ? "No Hosts to observe found." : "";
}

}  // namespace netro
