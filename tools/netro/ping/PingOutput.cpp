// How "netro ping" shows what comes and what it came to: lines for people.

#include "ping/PingOutput.h"

#include <algorithm>
#include <cstdio>
#include <string>
#include <utility>
#include <vector>

#include "terminal/EchoText.h"
#include "terminal/FailureText.h"
#include "terminal/Terminal.h"

namespace netro::tool {
namespace {

/// More would fill the screen with replies.
constexpr std::size_t kMostHostsWithLines = 5;

bool HasLines(const PingOptions& options) {
  return !options.quiet && !options.json && options.hosts.size() <= kMostHostsWithLines;
}

std::string ReplyLine(const PingTarget& target, const PingReply& reply, std::int32_t size) {
  const std::string sequence = ": seq=" + std::to_string(reply.sequence);
  if (reply.status == 0) {
    return std::to_string(size) + " bytes from " + target.Label() + sequence +
           " ttl=" + std::to_string(reply.ttl) + " time=" + Milliseconds(reply.microSeconds) +
           " ms";
  }
  return Styled(Style::Red, "no reply from " + target.Label() + sequence + " " +
                                EchoStatusText(reply.status) +
                                (reply.from.empty() ? "" : ", said " + reply.from));
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
    const std::string note = target.errorText.empty() ? "" : "  " + target.errorText;
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
  return !HasLines(options_) || (Print(ReplyLine(target, reply, options_.size) + "\n") && Flush());
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
  std::fprintf(stderr, "\r\x1b[Kround %d%s, %d of %zu hosts have answered", pinger_.Rounds(),
               end.c_str(), pinger_.AnsweredHosts(), pinger_.Targets().size());
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
