// The line that shows how far a transfer is.

#include "terminal/ProgressBar.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <iterator>

#include "terminal/Terminal.h"

namespace netro::tool {
namespace {

constexpr std::chrono::milliseconds kRedraw(100);
/// Seconds after which an old measurement counts a third.
constexpr double kRateMemory = 3;

std::string Clipped(const std::string& line) {
  // A line as wide as the terminal would wrap on some.
  const auto width = static_cast<std::size_t>(std::max(Width(Stream::Error) - 1, 1));
  return line.substr(0, width);
}

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

std::string Bar(double share) {
  constexpr int kCells = 24;
  const auto full = static_cast<std::size_t>(share * kCells);
  std::string bar(full, '=');
  bar += full < kCells ? ">" : "";
  bar.resize(kCells, ' ');
  return "[" + bar + "]";
}

}  // namespace

std::string ByteCount(double bytes) {
  constexpr const char* kUnits[] = {"kB", "MB", "GB", "TB"};
  if (bytes < 1000) return Formatted(bytes == 1 ? "%.0f byte" : "%.0f bytes", bytes);
  std::size_t unit = 0;
  for (bytes /= 1000; bytes >= 999.5 && unit + 1 < std::size(kUnits); ++unit) bytes /= 1000;
  return Formatted(bytes < 9.95 ? "%.1f %s" : "%.0f %s", bytes, kUnits[unit]);
}

ProgressBar::ProgressBar() : enabled_(IsDecorated(Stream::Error)) {}

ProgressBar::~ProgressBar() { Clear(); }

void ProgressBar::Update(double done, double total) {
  const Clock::time_point now = Clock::now();
  if (!enabled_ || now - last_ < kRedraw || !IsInForeground()) return;
  Measure(done, std::chrono::duration<double>(now - last_).count());
  last_ = now;
  Draw(done, total);
}

void ProgressBar::Measure(double done, double seconds) {
  if (done < lastDone_) {  // a repeated request begins anew
    lastDone_ = 0;
    rate_ = 0;
  }
  const double rate = (done - lastDone_) / seconds;
  const double weight = rate_ == 0 ? 1 : 1 - std::exp(-seconds / kRateMemory);
  rate_ += weight * (rate - rate_);
  lastDone_ = done;
}

void ProgressBar::Draw(double done, double total) {
  std::string line;
  if (total > 0) {
    const double share = std::clamp(done / total, 0.0, 1.0);
    line = Formatted("%3.0f%% ", std::floor(share * 100)) + Bar(share) + " " + ByteCount(done) +
           " of " + ByteCount(total);
  } else if (done > 0) {
    line = ByteCount(done);
  } else {
    line = "waiting";
  }
  if (rate_ > 0) line += "  " + ByteCount(rate_) + "/s";
  if (rate_ > 0 && total > done) line += "  " + Duration((total - done) / rate_) + " left";
  std::fprintf(stderr, "\r%s\x1b[K", Clipped(line).c_str());
  std::fflush(stderr);
  drawn_ = true;
}

void ProgressBar::Clear() {
  if (!drawn_) return;
  std::fputs("\r\x1b[K", stderr);
  std::fflush(stderr);
  drawn_ = false;
}

}  // namespace netro::tool
