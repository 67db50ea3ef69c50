// Settings files of the watcher: whatever the text, reading ends, the values are in their bounds,
// and every message can be filled in.

#include "diag/WatchLog.h"
#include "diag/WatchSettings.h"
#include "fuzz/Fuzz.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using namespace netro;
  WatchSettings settings;
  const std::string_view text(reinterpret_cast<const char*>(data), size);
  const std::string error = ReadWatchSettings(text, {true, false, false}, settings);
  if (settings.upDelay < 300 || settings.downDelay < 10 || settings.up.count < 1) std::abort();
  if (!error.empty()) return 0;
  if (settings.targets.empty()) std::abort();
  const WatchTarget& target = settings.targets.front();
  const WatchFacts facts{"sender", target.name, target.host, "error"};
  for (const std::string* message : {&settings.upLogMsg, &settings.downLogMsg, &settings.upSubject,
                                     &settings.downSubject, &settings.downActionMsg}) {
    WatchLogLine({FillWatchText(*message, settings, facts)});
  }
  return 0;
}
