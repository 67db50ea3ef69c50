// The table of "netro trace --live" and "--report".

#include "trace/LiveTable.h"

#include <algorithm>
#include <cstdio>
#include <utility>

#include "terminal/Encoding.h"
#include "terminal/Terminal.h"
#include "terminal/TextWidth.h"

namespace netro::tool {
namespace {

constexpr std::size_t kIndent = 5;  // " 12  "
constexpr std::size_t kFigures = 51;
constexpr std::size_t kLeastHost = 15;
constexpr const char* kNobody = "*";

std::string Figures(const LiveHop& hop) {
  char text[128];
  std::snprintf(text, sizeof text, "%5.1f%%%7d", hop.LossPercent(), hop.sent);
  std::string figures = text;
  const TimeStatistics& times = hop.times;
  for (const double time : {static_cast<double>(hop.last), times.Average(), times.Minimum(),
                            times.Maximum(), times.Deviation()}) {
    std::snprintf(text, sizeof text, "%8.1f", time / 1000);
    figures += times.Count() == 0 ? "       -" : text;
  }
  return figures;
}

std::string HostText(const LiveHop::Router& router, const TraceNames& names) {
  const std::string name = names.NameOf(router.address);
  return name.empty() ? router.address : ShownText(name) + " (" + router.address + ")";
}

std::string LabelsText(const std::vector<MplsLabel>& labels) {
  std::string text;
  for (const MplsLabel& label : labels) {
    text += (text.empty() ? "[MPLS: label " : ", label ") + std::to_string(label.Label) +
            " class " + std::to_string(label.TrafficClass) + " ttl " + std::to_string(label.TTL);
  }
  return text.empty() ? text : text + "]";
}

std::size_t HostWidth(const LiveTrace& trace, const TraceNames& names, std::size_t width) {
  std::size_t longest = kLeastHost;
  for (std::size_t i = 0; i < trace.ShownHops(); ++i) {
    for (const LiveHop::Router& router : trace.Hop(i).routers) {
      longest = std::max(longest, CharacterCount(HostText(router, names)));
    }
  }
  const std::size_t room = width > kIndent + kFigures ? width - kIndent - kFigures : 0;
  return width == 0 ? longest : std::min(longest, std::max(room, kLeastHost));
}

void AddHop(std::size_t number, const LiveHop& hop, const TraceNames& names, std::size_t hostWidth,
            std::vector<std::string>& lines) {
  char begin[32];
  std::snprintf(begin, sizeof begin, "%3zu  ", number);
  const std::string host = hop.routers.empty() ? kNobody : HostText(hop.routers.front(), names);
  lines.push_back(begin + Fitted(ShortenedInside(host, hostWidth), hostWidth) + Figures(hop));
  const std::string indent(kIndent, ' ');
  for (const LiveHop::Router& router : hop.routers) {
    if (&router != &hop.routers.front()) lines.push_back(indent + HostText(router, names));
    if (!router.labels.empty()) lines.push_back(indent + LabelsText(router.labels));
  }
  if (!hop.failure.empty()) lines.push_back(indent + hop.failure);
}

}  // namespace

std::vector<std::string> LiveTableLines(const LiveTrace& trace, const TraceNames& names,
                                        std::size_t width) {
  const std::size_t hostWidth = HostWidth(trace, names, width);
  std::vector<std::string> lines = {Fitted("hop  address", kIndent + hostWidth) +
                                    "  loss   sent    last     avg    best   worst     dev"};
  for (std::size_t i = 0; i < trace.ShownHops(); ++i) {
    AddHop(i + 1, trace.Hop(i), names, hostWidth, lines);
  }
  if (width == 0) return lines;
  for (std::string& line : lines) line = Shortened(line, width);
  return lines;
}

LiveTable::LiveTable(const TraceOptions& options, const std::string& address)
    : options_(options), address_(address) {}

std::string LiveTable::Head(const LiveTrace& trace) const {
  const bool isNamed = options_.host != address_;
  return "TRACE " + options_.host + (isNamed ? " (" + address_ + ")" : "") + ": " +
         std::to_string(trace.Cycles()) + (trace.Cycles() == 1 ? " cycle" : " cycles") +
         ", times in ms";
}

bool LiveTable::Draw(const LiveTrace& trace, const TraceNames& names) {
  if (options_.json || options_.report || !IsDecorated(Stream::Output)) return true;
  if (!IsInForeground(Stream::Output)) return true;
  // A line as wide as the terminal would wrap on some, and the last row is the cursor's.
  const int width = std::max(Width(Stream::Output) - 1, 1);
  const auto rows = static_cast<std::size_t>(std::max(Height(Stream::Output) - 1, 1));
  std::vector<std::string> lines = LiveTableLines(trace, names, static_cast<std::size_t>(width));
  lines.insert(lines.begin(), Shortened(Head(trace), static_cast<std::size_t>(width)));
  lines.resize(std::min(lines.size(), rows));
  // Lines that another size has wrapped or scrolled can no longer be counted.
  const auto size = std::pair(width, static_cast<int>(rows));
  if (size_ != std::pair(0, 0) && size != size_) {
    Print("\x1b[H\x1b[2J");
    drawn_ = 0;
  }
  size_ = size;
  Write(std::move(lines));
  return Flush();
}

void LiveTable::Finish(const LiveTrace& trace, const TraceNames& names) {
  std::vector<std::string> lines = LiveTableLines(trace, names, 0);
  lines.insert(lines.begin(), Head(trace));
  Write(std::move(lines));
  Flush();
}

void LiveTable::Write(std::vector<std::string> lines) {
  std::string output = drawn_ == 0 ? "" : "\r\x1b[" + std::to_string(drawn_) + "A";
  const char* lineEnd = size_ == std::pair(0, 0) ? "\n" : "\x1b[K\n";
  for (std::size_t i = 0; i < lines.size(); ++i) {
    output += i == 0   ? Styled(Style::Bold, lines[i])
              : i == 1 ? Styled(Style::Dim, lines[i])
                       : lines[i];
    output += lineEnd;
  }
  if (drawn_ > 0) output += "\x1b[J";
  drawn_ = lines.size();
  Print(output);
}

}  // namespace netro::tool
