// How far a transfer is, in words.

#include "terminal/Transfer.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <iterator>

namespace netro::tool {
namespace {

/// Seconds after which an old measurement counts a third.
constexpr double kRateMemory = 3;

std::string Formatted(const char* form, double value, const char* unit = "") {
  char text[64];
  std::snprintf(text, sizeof text, form, value, unit);
  return text;
}

/// "0:05", "12:34", "1:02:03"
std::string Duration(double seconds) {
  const auto whole = static_cast<long>(std::min(std::ceil(seconds), 359999.0));
  char text[32];
  if (whole >= 3600) {
    std::snprintf(text, sizeof text, "%ld:%02ld:%02ld", whole / 3600, whole / 60 % 60, whole % 60);
  } else {
    std::snprintf(text, sizeof text, "%ld:%02ld", whole / 60, whole % 60);
  }
  return text;
}

/// Empty where too few columns are left beside the longest of the other parts, so that the bar
/// keeps its length while they change.
std::string Bar(double share, std::size_t width) {
  constexpr std::size_t kOtherParts = 46;
  constexpr std::size_t kLeastCells = 5;
  constexpr std::size_t kMostCells = 24;
  if (width < kOtherParts + kLeastCells) return {};
  const std::size_t cells = std::min(width - kOtherParts, kMostCells);
  const auto full = static_cast<std::size_t>(share * static_cast<double>(cells));
  std::string bar(full, '=');
  bar += full < cells ? ">" : "";
  bar.resize(cells, ' ');
  return "[" + bar + "] ";
}

}  // namespace

std::string ByteCount(double bytes) {
  constexpr const char* kUnits[] = {"kB", "MB", "GB", "TB"};
  if (bytes < 1000) return Formatted(bytes == 1 ? "%.0f byte" : "%.0f bytes", bytes);
  std::size_t unit = 0;
  for (bytes /= 1000; bytes >= 999.5 && unit + 1 < std::size(kUnits); ++unit) bytes /= 1000;
  return Formatted(bytes < 9.95 ? "%.1f %s" : "%.0f %s", bytes, kUnits[unit]);
}

void Transfer::Measure(double done, double total) {
  const Clock::time_point now = Clock::now();
  const double seconds = std::chrono::duration<double>(now - last_).count();
  if (done < done_) done_ = rate_ = 0;  // a repeated request begins anew
  const double weight = rate_ == 0 ? 1 : 1 - std::exp(-seconds / kRateMemory);
  if (seconds > 0) rate_ += weight * ((done - done_) / seconds - rate_);
  last_ = now;
  done_ = done;
  total_ = total;
}

std::string Transfer::Text(std::size_t width) const {
  std::string text;
  if (total_ > 0) {
    const double share = std::clamp(done_ / total_, 0.0, 1.0);
    text = Formatted("%3.0f%% ", std::floor(share * 100)) + Bar(share, width) + ByteCount(done_) +
           " of " + ByteCount(total_);
  } else {
    text = done_ > 0 ? ByteCount(done_) : "waiting";
  }
  const auto append = [&text, width](const std::string& part) {
    if (text.size() + part.size() <= width) text += part;
  };
  if (rate_ > 0) append("  " + ByteCount(rate_) + "/s");
  if (rate_ > 0 && total_ > done_) append("  " + Duration((total_ - done_) / rate_) + " left");
  return text.substr(0, width);
}

}  // namespace netro::tool
