// How "netro dns" shows what it got: a zone file's text.

#include "dns/DnsOutput.h"

#include <netro/RecordText.h>

#include <algorithm>
#include <cstdio>
#include <string>
#include <string_view>
#include <utility>

#include "dns/DnsSections.h"
#include "terminal/Encoding.h"
#include "terminal/SecondsText.h"
#include "terminal/Terminal.h"

namespace netro::tool {
namespace {

/// Longer names do not push the columns of all others to the right.
constexpr std::size_t kWidestName = 40;

struct Columns {
  std::size_t name = 0;
  std::size_t timeToLive = 0;
  std::size_t type = 0;
};

Columns Measure(const QueryDNSCLS& query) {
  Columns columns;
  for (const DnsSection& section : kDnsSections) {
    ForEachRecord(query, section, [&columns](const DNSCLS& record) {
      const std::size_t name = RecordNameText(record.Query()).size();
      columns.name = std::max(columns.name, name <= kWidestName ? name : 0);
      columns.timeToLive = std::max(columns.timeToLive, std::to_string(TimeToLive(record)).size());
      columns.type = std::max(columns.type, RecordTypeText(record.DataType()).size());
    });
  }
  return columns;
}

std::string Padded(std::string text, std::size_t width) {
  text.resize(std::max(text.size(), width), ' ');
  return text + "  ";
}

void PrintRecord(const DNSCLS& record, const Columns& columns) {
  std::string line = Padded(RecordNameText(record.Query()), columns.name) +
                     Padded(std::to_string(TimeToLive(record)), columns.timeToLive) + "IN  " +
                     Padded(RecordTypeText(record.DataType()), columns.type) +
                     RecordDataText(record);
  line.erase(line.find_last_not_of(' ') + 1);
  Print(line + "\n");
}

void PrintComment(const std::string& text) { Print(Styled(Style::Dim, text) + "\n"); }

void PrintSections(const QueryDNSCLS& query) {
  const Columns columns = Measure(query);
  for (const DnsSection& section : kDnsSections) {
    const std::int32_t count = (query.*section.count)();
    PrintComment("\n;; " + std::string(section.heading) + " (" + std::to_string(count) + ")");
    ForEachRecord(query, section,
                  [&columns](const DNSCLS& record) { PrintRecord(record, columns); });
  }
}

/// ";; NOERROR, flags aa rd ra"
std::string StatusLine(const ReplyHeader& header) {
  std::string line = ";; " + header.status;
  for (const std::string& flag : header.flags) {
    line += (line.find(", flags") == line.npos ? ", flags " : " ") + flag;
  }
  return line;
}

/// ";; EDNS: version: 0, flags: do; udp: 1232", and a line for each option.
void PrintEdns(const EDNSCLS& edns) {
  const std::int32_t others = edns.Flags() & 0x7fff;
  char unknown[32] = {};
  if (others != 0) std::snprintf(unknown, sizeof unknown, "; MBZ: 0x%04x", others);
  PrintComment(";; EDNS: version: " + std::to_string(edns.Version()) +
               ", flags:" + (edns.DNSSECOK() ? " do" : "") + unknown +
               "; udp: " + std::to_string(edns.UDPSize()));
  for (const EDNSOption& option : edns.Options()) {
    PrintComment(";; OPT=" + std::to_string(option.Code) + ": " + Hex(option.Data));
  }
}

/// ";; 127.0.0.1:53 over UDP, 0.4 ms, 76 bytes"
std::string ServerLine(const QueryDNSCLS& query, const DnsResult& result, bool zone) {
  char time[32];
  std::snprintf(time, sizeof time, "%.1f ms", result.seconds * 1000);
  return ";; " + result.server + " over " + (result.overTcp ? "TCP" : "UDP") + ", " + time + ", " +
         (zone ? std::to_string(query.CountAll()) + " records"
               : std::to_string(query.InBuffer().size()) + " bytes");
}

void PrintWhole(const DnsLookup& lookup) {
  const auto& [request, query, result] = lookup;
  PrintComment(";; QUESTION");
  Print(";" + QuestionName(query) + "  IN  " + RecordTypeText(request.type) + "\n");
  PrintSections(query);
  PrintComment("\n" + StatusLine(*result.header));
  if (const EDNSCLS* edns = query.EDNS()) PrintEdns(*edns);
  for (const std::string& server : result.silentServers) {
    PrintComment(";; " + ShownText(server) + " did not answer");
  }
  if (result.wasTruncated) {
    PrintComment(";; the reply over UDP was truncated; asked again over TCP");
  }
  PrintComment(ServerLine(query, result, request.zone));
}

void PrintAnswerData(const QueryDNSCLS& query) {
  ForEachRecord(query, kDnsSections[0],
                [](const DNSCLS& record) { Print(RecordDataText(record) + "\n"); });
}

bool IsAddress(const QueryDNSCLS& query) { return query.IsIPNumber(query.Domain()); }

/// What a user can do about it.
std::string Advice(const DnsLookup& lookup) {
  const auto& [request, query, result] = lookup;
  if (result.server.empty()) return "; name one with --server";
  const bool wasOurs = result.seconds >= request.timeout;  // and not the class's own limit
  if (result.errorNumber == 10002 && request.timeout > 0 && wasOurs) {
    return "; the limit is " + SecondsText(request.timeout) + " s, --timeout changes it";
  }
  if (result.header && request.type != TYPE_PTR && IsAddress(query)) {
    return "; --reverse asks for the name of an address";
  }
  return {};
}

void Explain(const DnsLookup& lookup) {
  const auto& [request, query, result] = lookup;
  if (result.errorNumber == 0) return;
  std::string text = "cannot look up " + QuestionName(query) + " " + RecordTypeText(request.type);
  text += result.server.empty() ? "" : " at " + result.server;
  const bool hasPeriod = result.errorText.ends_with('.');
  text += ": " + result.errorText.substr(0, result.errorText.size() - (hasPeriod ? 1 : 0));
  text += " (error " + std::to_string(result.errorNumber);
  text += result.header ? ", the server answered " + result.header->status + ")" : ")";
  ShowMessage(text + Advice(lookup));
}

}  // namespace

bool DnsOutput::Show(const DnsLookup& lookup) {
  if (json_) {
    PrintJson(lookup);
  } else {
    PrintReply(lookup);
  }
  Explain(lookup);
  good_ += lookup.result.errorNumber == 0 ? 1 : 0;
  return Flush();
}

void DnsOutput::PrintReply(const DnsLookup& lookup) {
  const DnsResult& result = lookup.result;
  if (!result.header || (result.errorNumber != 0 && !HasRecords(lookup.query))) return;
  if (brief_) return PrintAnswerData(lookup.query);
  if (!std::exchange(isFirst_, false)) Print("\n");
  PrintWhole(lookup);
}

void DnsOutput::PrintJson(const DnsLookup& lookup) {
  objects_.BeginObject();
  PrintDnsJson(lookup);
}

void DnsOutput::Finish(std::span<const std::unique_ptr<DnsLookup>> rest) {
  if (json_) {
    for (const auto& lookup : rest) PrintJson(*lookup);
    objects_.End();
  }
  TellNotBegun(rest.size(), count_, "questions");
}

}  // namespace netro::tool
