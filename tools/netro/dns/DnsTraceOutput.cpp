#include "dns/DnsTraceOutput.h"

#include <netro/RecordText.h>
#include <netro/ShownText.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <string>
#include <utility>

#include "dns/RecordJson.h"
#include "terminal/FailureText.h"
#include "terminal/SecondsText.h"
#include "terminal/Terminal.h"

namespace netro::tool {
namespace {

using Json = nlohmann::ordered_json;

constexpr std::int32_t kNoEntries = 59;

const char* NameOf(TraceEnd end) {
  switch (end) {
    case TraceEnd::Answer:
      return "answer";
    case TraceEnd::NoRecord:
      return "no_such_record";
    case TraceEnd::NoName:
      return "no_such_name";
    case TraceEnd::DeadEnd:
      return "dead_end";
    default:
      return "stopped";
  }
}

const char* NameOf(ReplyKind kind) {
  switch (kind) {
    case ReplyKind::Answer:
      return "answer";
    case ReplyKind::NoRecord:
      return "no_such_record";
    case ReplyKind::NoName:
      return "no_such_name";
    case ReplyKind::Referral:
      return "referral";
    default:
      return "useless";
  }
}

bool IsAuthoritative(const TraceStep& step) {
  return step.header && !step.header->flags.empty() && step.header->flags.front() == "aa";
}

std::string Outcome(const TraceStep& step) {
  switch (step.reply.kind) {
    case ReplyKind::Answer:
      return IsAuthoritative(step) ? "the answer" : "an answer, but it does not serve the zone";
    case ReplyKind::NoRecord:
      return "no record of this type";
    case ReplyKind::NoName:
      return "no such name";
    case ReplyKind::Referral:
      return "refers to " + step.reply.zone;
    default:
      return step.reply.why;
  }
}

/// ";; test.: 127.0.0.1:53 (ns.test.) over UDP, 0.4 ms: refers to a.test."
void PrintStep(const TraceStep& step) {
  char time[32];
  std::snprintf(time, sizeof time, "%.1f ms", step.seconds * 1000);
  const std::string lookup =
      step.depth == 0 ? "" : "for the address of " + step.question.name + ", ";
  const std::string name = step.serverName.empty() ? "" : " (" + step.serverName + ")";
  const std::string line = ";; " + lookup + step.question.zone + ": " + step.server + name +
                           " over " + (step.overTcp ? "TCP" : "UDP") + ", " + time + ": " +
                           Outcome(step);
  Print(Styled(Style::Dim, ShownText(line)) + "\n");
}

void PrintRecords(const std::vector<DNSCLS>& records) {
  for (const DNSCLS& record : records) Print(RecordLineText(record) + "\n");
}

void PrintReferral(const ZoneReply& reply) {
  PrintRecords(reply.records);
  if (reply.leftOut == 0) return;
  Print(
      Styled(Style::Dim, ";; and " + std::to_string(reply.leftOut) + " more, which are not used") +
      "\n");
}

bool IsGood(const DnsTrace& trace) { return trace.errorNumber == 0; }

Json RecordsJson(const std::vector<DNSCLS>& records) {
  Json list = Json::array();
  for (const DNSCLS& record : records) list.push_back(ToJson(record));
  return list;
}

Json QuestionJson(const std::string& name, QueryEnum type) {
  return {{"name", name}, {"class", "IN"}, {"type", RecordTypeText(type)}};
}

Json StepJson(const TraceStep& step) {
  const bool isReferral = step.reply.kind == ReplyKind::Referral;
  return {{"question", QuestionJson(step.question.name, step.question.type)},
          {"zone", step.question.zone},
          {"depth", step.depth},
          {"server_name", step.serverName},
          {"server", step.server},
          {"transport", step.overTcp ? "TCP" : "UDP"},
          {"seconds", step.seconds},
          {"status", step.header ? Json(step.header->status) : Json(nullptr)},
          {"flags", step.header ? Json(step.header->flags) : Json::array()},
          {"result", NameOf(step.reply.kind)},
          {"reason", step.reply.why},
          {"refers_to", isReferral ? Json(step.reply.zone) : Json(nullptr)},
          {"records", RecordsJson(step.reply.records)}};
}

/// Why there is no answer.
std::string ReasonOf(const DnsTrace& trace) {
  if (trace.end == TraceEnd::NoName) return "no such name";
  if (trace.end != TraceEnd::DeadEnd || trace.steps.empty()) return trace.errorText;
  if (trace.errorNumber == kNoEntries) return "that is no name";
  const auto last = std::ranges::find(trace.steps.rbegin(), trace.steps.rend(), std::size_t{0},
                                      &TraceStep::depth);
  const bool isBehind = last->reply.kind == ReplyKind::Referral;
  return "no server of " + (isBehind ? last->reply.zone : last->question.zone) + " knows on";
}

void Explain(const DnsTrace& trace) {
  for (const std::string& note : trace.notes) ShowMessage(note);
  if (IsGood(trace)) return;
  const std::string what = "cannot trace " + trace.name + " " + RecordTypeText(trace.request.type);
  ShowMessage(FailureText(what, trace.errorNumber, ReasonOf(trace)) +
              TimeoutAdvice(trace.errorNumber, trace.request.timeout));
}

}  // namespace

bool DnsTraceOutput::Show(const DnsTrace& trace) {
  if (json_) {
    PrintJson(trace);
  } else {
    PrintText(trace);
  }
  Explain(trace);
  good_ += IsGood(trace) ? 1 : 0;
  return Flush();
}

void DnsTraceOutput::PrintText(const DnsTrace& trace) {
  if (brief_) {
    for (const DNSCLS& record : trace.answer) Print(RecordDataText(record) + "\n");
    return;
  }
  if (!std::exchange(isFirst_, false)) Print("\n");
  Print(";" + trace.name + "  IN  " + RecordTypeText(trace.request.type) + "\n");
  std::string zone;
  for (const TraceStep& step : trace.steps) {
    if (step.depth == 0 && std::exchange(zone, step.question.zone) != step.question.zone) {
      Print("\n");
    }
    PrintStep(step);
    if (step.depth == 0) PrintReferral(step.reply);
  }
  PrintRecords(trace.answer);
}

void DnsTraceOutput::PrintJson(const DnsTrace& trace) {
  Json steps = Json::array();
  for (const TraceStep& step : trace.steps) steps.push_back(StepJson(step));
  objects_.BeginObject();
  Print(ObjectText({{"question", QuestionJson(trace.name, trace.request.type)},
                    {"ok", IsGood(trace)},
                    {"outcome", NameOf(trace.end)},
                    {"error", {{"number", trace.errorNumber}, {"text", trace.errorText}}},
                    {"seconds", trace.seconds},
                    {"steps", std::move(steps)},
                    {"notes", trace.notes},
                    {"answer", RecordsJson(trace.answer)}}));
}

void DnsTraceOutput::Finish(std::span<const std::unique_ptr<DnsTrace>> rest) {
  if (json_) {
    for (const auto& trace : rest) PrintJson(*trace);
    objects_.End();
  }
  TellNotBegun(rest.size(), count_, "questions");
}

}  // namespace netro::tool
