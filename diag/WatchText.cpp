// The placeholders of the watcher's message texts.
#include <algorithm>
#include <array>
#include <utility>

#include "diag/WatchSettings.h"

namespace netro {
namespace {

// Texts that name one another many times would keep a filler busy without end.
constexpr int kMostSteps = 1 << 16;

class Filler {
 public:
  Filler(const WatchSettings& settings, const WatchFacts& facts)
      : texts_{{{"UpSubject$", &settings.upSubject},
                {"DownSubject$", &settings.downSubject},
                {"UpActionMsg$", &settings.upActionMsg},
                {"DownActionMsg$", &settings.downActionMsg}}},
        values_{{{"SenderHostName$", facts.senderHostName},
                 {"Sender$", settings.sender},
                 {"Recipients$", settings.recipients},
                 {"HostName$", facts.name},
                 {"Name$", facts.name},
                 {"Host$", facts.host},
                 {"UpDelay$", std::to_string(settings.upDelay)},
                 {"DownDelay$", std::to_string(settings.downDelay)},
                 {"UpCycle$", std::to_string(settings.up.count)},
                 {"DownCycle$", std::to_string(settings.down.count)},
                 {"ErrorDump$", facts.errorDump}}} {}

  void Fill(std::string_view text, std::string& out) {
    while (!text.empty() && ++steps_ < kMostSteps) {
      std::size_t taken = TakeText(text, out);
      if (taken == 0) taken = TakeValue(text, out);
      if (taken == 0) out += text.front();
      text.remove_prefix(std::max(taken, std::size_t{1}));
    }
  }

 private:
  // A text is not filled into itself.
  std::size_t TakeText(std::string_view text, std::string& out) {
    for (auto& [name, value] : texts_) {
      if (value == nullptr || !text.starts_with(name)) continue;
      const std::string* inner = std::exchange(value, nullptr);
      Fill(*inner, out);
      value = inner;
      return name.size();
    }
    return 0;
  }

  std::size_t TakeValue(std::string_view text, std::string& out) const {
    for (const auto& [name, value] : values_) {
      if (!text.starts_with(name)) continue;
      out += value;
      return name.size();
    }
    return 0;
  }

  std::array<std::pair<std::string_view, const std::string*>, 4> texts_;
  const std::array<std::pair<std::string_view, std::string>, 11> values_;
  int steps_ = 0;
};

}  // namespace

std::string FillWatchText(const std::string& text, const WatchSettings& settings,
                          const WatchFacts& facts) {
  std::string filled;
  Filler(settings, facts).Fill(text, filled);
  return filled;
}

}  // namespace netro
