// How "netro ping" shows what comes and what it came to: lines for people.

#include "ping/PingOutput.h"

#include <algorithm>
#include <charconv>
#include <cstdio>
#include <iterator>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "terminal/EchoText.h"
#include "terminal/FailureText.h"
#include "terminal/Terminal.h"
#include "terminal/TextWidth.h"

namespace netro::tool {
namespace {

/// More would fill the screen with replies.
constexpr std::size_t kMostHostsWithLines = 5;

bool HasLines(const PingOptions& options) {
  return !options.quiet && !options.json && !options.jsonLines && !options.alive &&
         options.hosts.size() <= kMostHostsWithLines;
}

// With short intervals this is much of what the command does: no allocation for each number.
class Line {
 public:
  Line() { text_.reserve(128); }

  Line& operator<<(std::string_view text) {
    text_.append(text);
    return *this;
  }
  [[gnu::noinline]] Line& operator<<(std::int32_t number) {
    char digits[16];
    text_.append(digits, std::to_chars(digits, std::end(digits), number).ptr);
    return *this;
  }
  std::string Take() { return std::move(text_); }

 private:
  std::string text_;
};

std::string AnswerLine(const PingTarget& target, const PingReply& reply, std::int32_t size) {
  constexpr std::int32_t kThousand = 1000;
  const std::int32_t fraction = reply.microSeconds % kThousand;
  Line line;
  line << size << " bytes from " << target.Label() << ": seq=" << reply.sequence
       << " ttl=" << reply.ttl << " time=" << reply.microSeconds / kThousand
       << (fraction < 10    ? ".00"
           : fraction < 100 ? ".0"
                            : ".")
       << fraction << (reply.duplicate ? " ms (duplicate)\n" : " ms\n");
  return line.Take();
}

std::string ReplyLine(const PingTarget& target, const PingReply& reply, std::int32_t size) {
  if (reply.status == 0) return AnswerLine(target, reply, size);
  return Styled(Style::Red, "no reply from " + target.Label() +
                                ": seq=" + std::to_string(reply.sequence) + " " +
                                EchoAnswerText(reply.status, reply.filtered) +
                                (reply.from.empty() ? "" : ", said " + reply.from)) +
         "\n";
}

/// "33.333%"
std::string Loss(const PingTarget& target) {
  char text[32];
  std::snprintf(text, sizeof text, "%.5g%%", target.LossPercent());
  return target.LossPercent() < 0 ? "-" : text;
}

Style StyleOf(const PingTarget& target) { return target.HasAnswered() ? Style::Bold : Style::Red; }

std::string Counts(const PingTarget& target) {
  std::string text =
      std::to_string(target.sent) + " sent, " + std::to_string(target.Received()) + " received";
  if (target.duplicates > 0) text += ", " + std::to_string(target.duplicates) + " duplicates";
  if (target.NotAwaited() > 0) text += ", " + std::to_string(target.NotAwaited()) + " not awaited";
  return text + (target.LossPercent() < 0 ? "" : ", " + Loss(target) + " loss");
}

void PrintBlock(const PingTarget& target) {
  const TimeStatistics& times = target.times;
  std::string text =
      Styled(StyleOf(target), "--- " + target.Label() + " ---") + "\n" + Counts(target) + "\n";
  if (target.HasAnswered()) {
    text += "min/avg/max/deviation " + Milliseconds(times.Minimum()) + "/" +
            Milliseconds(times.Average()) + "/" + Milliseconds(times.Maximum()) + "/" +
            Milliseconds(times.Deviation()) + " ms\n";
  }
  Print(text);
}

// --- the table

std::string LeftAligned(std::string text, std::size_t width) {
  text.resize(std::max(text.size(), width), ' ');
  return text;
}

std::string RightAligned(const std::string& text, std::size_t width) {
  return std::string(width - std::min(text.size(), width), ' ') + text;
}

std::string Row(const std::string& host, std::size_t width,
                const std::vector<std::string>& figures) {
  constexpr std::size_t kColumnWidth = 9;
  std::string row = LeftAligned(host, width);
  for (const std::string& figure : figures) row += " " + RightAligned(figure, kColumnWidth);
  return row;
}

std::vector<std::string> Figures(const PingTarget& target) {
  std::vector<std::string> figures = {std::to_string(target.sent),
                                      std::to_string(target.Received()), Loss(target)};
  const TimeStatistics& times = target.times;
  for (const double time : {times.Minimum(), times.Average(), times.Maximum(), times.Deviation()}) {
    figures.push_back(target.HasAnswered() ? Milliseconds(time) : "-");
  }
  return figures;
}

/// A name longer than this does not push the columns of all others to the right.
constexpr std::size_t kWidestHost = 40;

void PrintTable(const std::vector<PingTarget>& targets) {
  std::size_t width = 4;
  for (const PingTarget& target : targets) {
    width = std::max(width, std::min(target.Label().size(), kWidestHost));
  }
  const std::string headings =
      Row("host", width, {"sent", "received", "loss", "min", "avg", "max", "deviation"});
  Print(Styled(Style::Dim, headings + "  (times in ms)") + "\n");
  for (const PingTarget& target : targets) {
    const std::string row = Row(target.Label(), width, Figures(target));
    const std::string twice =
        target.duplicates == 0 ? "" : "  " + std::to_string(target.duplicates) + " duplicates";
    const std::string note = twice + (target.errorText.empty() ? "" : "  " + target.errorText);
    Print((target.HasAnswered() ? row : Styled(Style::Red, row)) + note + "\n");
  }
}

}  // namespace

void PingPrinter::NotFound(const PingTarget& target) {
  ShowMessage(FailureText("cannot look up " + target.host, target.errorNumber, target.errorText));
}

void PingPrinter::Begun(const PingTarget& target) {
  if (!HasLines(options_)) return;
  Print(Styled(Style::Bold, "PING " + target.Label()) + ": " + std::to_string(options_.size) +
        " bytes of data\n");
  Flush();
}

bool PingPrinter::Ended(const PingTarget& target, const PingReply& reply) {
  if (options_.alive && reply.status == 0 && target.Received() == 1 && !reply.duplicate) {
    return Print(target.host + "\n") && Flush();
  }
  if (options_.jsonLines && !options_.quiet) return PrintJsonLine(target, reply) && FlushIfDue();
  return !HasLines(options_) || (Print(ReplyLine(target, reply, options_.size)) && FlushIfDue());
}

// A program that reads many lines a second gets them in pieces.
bool PingPrinter::FlushIfDue() {
  constexpr std::chrono::milliseconds kPause(100);
  if (!isTerminal_) {
    const auto now = Clock::now();
    if (now < flushed_ + kPause) return true;
    flushed_ = now;
  }
  return Flush();
}

PingProgress::PingProgress(const Pinger& pinger, const PingOptions& options)
    : pinger_(pinger), options_(options) {
  constexpr std::int32_t kMilliSeconds = 200;
  if (!HasLines(options) && IsDecorated(Stream::Error)) {
    timer_.emplace(kMilliSeconds, [this] { Draw(); });
  }
}

PingProgress::~PingProgress() {
  if (isDrawn_) std::fputs("\r\x1b[K", stderr);
}

void PingProgress::Draw() {
  if (!IsInForeground() || pinger_.Rounds() == 0) return;
  const std::string end = options_.count == 0 ? "" : " of " + std::to_string(options_.count);
  const std::string text = "round " + std::to_string(pinger_.Rounds()) + end + ", " +
                           std::to_string(pinger_.AnsweredHosts()) + " of " +
                           std::to_string(pinger_.Targets().size()) + " hosts have answered";
  const std::string line =
      "\r\x1b[K" + Shortened(text, static_cast<std::size_t>(Width(Stream::Error) - 1));
  std::fputs(line.c_str(), stderr);
  isDrawn_ = true;
}

void PrintPingStatistics(const Pinger& pinger, const PingOptions& options) {
  const std::vector<PingTarget>& targets = pinger.Targets();
  if (pinger.Rounds() == 0 || pinger.IsForbidden()) return;
  if (targets.size() > kMostHostsWithLines) {
    PrintTable(targets);
    Print(std::to_string(pinger.AnsweredHosts()) + " of " + std::to_string(targets.size()) +
          " hosts have answered\n");
    return;
  }
  bool isFirst = options.quiet;
  for (const PingTarget& target : targets) {
    if (target.sent == 0) continue;
    Print(std::exchange(isFirst, false) ? "" : "\n");
    PrintBlock(target);
  }
}

}  // namespace netro::tool
