// How "netro trace" shows what it finds: a table for people. Names come last in a row, since nobody
// knows how long they are.

#include "trace/TraceOutput.h"

#include <algorithm>
#include <cstdio>

#include "terminal/EchoText.h"
#include "terminal/Encoding.h"
#include "terminal/FailureText.h"
#include "terminal/Terminal.h"

namespace netro::tool {
namespace {

constexpr int kTimeWidth = 10;

/// The longest address of the family of this one.
std::size_t AddressWidth(const std::string& address) {
  return address.find(':') == address.npos ? 15 : 39;
}

std::string RightAligned(const std::string& text, int width) {
  char column[32];
  std::snprintf(column, sizeof column, "%*s", width, text.c_str());
  return column;
}

/// The beginning of a row: "  3  10.1.0.2           0%".
std::string RowBegin(const std::string& number, std::string host, std::size_t width,
                     const std::string& loss) {
  host.resize(std::max(host.size(), width), ' ');
  return RightAligned(number, 3) + "  " + host + "  " + RightAligned(loss, 4);
}

std::string Loss(const TraceHop& hop) {
  const auto lost = std::ranges::count(hop.probes, "", &TraceProbe::host);
  const auto all = static_cast<std::ptrdiff_t>(hop.probes.size());
  return std::to_string((100 * lost + all / 2) / all) + "%";
}

/// A probe's time in the row of its host; lost probes are in the first row.
std::string TimeColumn(const TraceProbe& probe, const std::string& host, bool isFirstRow) {
  if (probe.host.empty()) return isFirstRow ? "*" : "";
  return probe.host == host ? Milliseconds(probe.microSeconds) : "";
}

/// What a host said instead of a reply or the usual word of a router; `host` empty: this system.
std::string FailuresOf(const TraceHop& hop, const std::string& host) {
  std::string text;
  for (const TraceProbe& probe : hop.probes) {
    const bool usual = probe.status == 0 || probe.status == kTraceExpired ||
                       probe.status == kTraceTimedOut || probe.host != host;
    const std::string failure = usual ? "" : EchoAnswerText(probe.status, probe.isFiltered);
    if (!failure.empty() && text.find(failure) == text.npos) {
      text += (text.empty() ? "" : ", ") + failure;
    }
  }
  return text;
}

std::string Row(const std::string& number, const TraceHop& hop, const std::string& host,
                const std::string& address, const std::string& name) {
  const bool isFirst = !number.empty();
  std::string row =
      RowBegin(number, host.empty() ? "*" : host, AddressWidth(address), isFirst ? Loss(hop) : "");
  for (const TraceProbe& probe : hop.probes) {
    row += RightAligned(TimeColumn(probe, host, isFirst), kTimeWidth);
  }
  row += name.empty() ? "" : "  " + ShownText(name);
  const std::string failures = FailuresOf(hop, host);
  row += failures.empty() ? "" : "  " + Styled(Style::Red, failures);
  return row.substr(0, row.find_last_not_of(' ') + 1);
}

}  // namespace

std::vector<std::string> HostsOf(const TraceHop& hop) {
  std::vector<std::string> hosts;
  for (const TraceProbe& probe : hop.probes) {
    if (!probe.host.empty() && std::ranges::find(hosts, probe.host) == hosts.end()) {
      hosts.push_back(probe.host);
    }
  }
  return hosts;
}

void PrintTraceHead(const TraceOptions& options, const std::string& address) {
  const bool named = options.host != address;
  Print(Styled(Style::Bold, "TRACE " + options.host + (named ? " (" + address + ")" : "")) + ": " +
        std::to_string(options.maxHops) + " hops at most, " + std::to_string(options.size) +
        " bytes of data\n");
  const std::string times =
      RightAligned("ms", kTimeWidth) +
      std::string(static_cast<std::size_t>(kTimeWidth * (options.probes - 1)), ' ');
  const std::string head = RowBegin("hop", "address", AddressWidth(address), "loss") + times +
                           (options.numeric ? "" : "  name");
  Print(Styled(Style::Dim, head.substr(0, head.find_last_not_of(' ') + 1)) + "\n");
  Flush();
}

bool PrintTraceHop(std::size_t number, const TraceHop& hop, const TraceNames& names,
                   const std::string& address) {
  std::vector<std::string> hosts = HostsOf(hop);
  if (hosts.empty()) hosts.emplace_back();
  std::string label = std::to_string(number);
  for (const std::string& host : hosts) {
    Print(Row(label, hop, host, address, names.NameOf(host)) + "\n");
    label.clear();
  }
  return Flush();
}

void ExplainTrace(const TraceOptions& options, const TraceEnd& end) {
  if (end.error == 0) return;
  if (end.error == kEchoForbidden) {
    ShowMessage(EchoForbiddenText());
  } else if (end.address.empty()) {
    ShowMessage(FailureText("cannot look up " + options.host, end.error, end.errorText));
  } else {
    const bool noLimit = end.error != kTraceTimedOut && end.error != kTraceExpired;
    const std::string limit =
        noLimit ? "" : " within " + std::to_string(options.maxHops) + " hops (--max-hops)";
    ShowMessage(FailureText(options.host + " was not reached" + limit, end.error, end.errorText));
  }
}

}  // namespace netro::tool
