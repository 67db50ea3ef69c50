// How "netro doctor" shows what it finds.

#include "doctor/DoctorOutput.h"

#include <nlohmann/json.hpp>
#include <string_view>

#include "terminal/HostAndPort.h"
#include "terminal/JsonOutput.h"
#include "terminal/Terminal.h"
#include "terminal/TextWidth.h"

namespace netro::tool {
namespace {

using Json = nlohmann::ordered_json;

constexpr std::size_t kStateWidth = 9;
constexpr std::size_t kLayerWidth = 11;

std::string StateText(FindingState state) {
  const std::string text = Fitted(NameOf(state), kStateWidth);
  switch (state) {
    case FindingState::Fine:
      return Styled(Style::Green, text);
    case FindingState::Skipped:
      return Styled(Style::Dim, text);
    case FindingState::Suspect:
      return Styled(Style::Cyan, text);
    default:
      return Styled(Style::Red, text);
  }
}

/// `text` in lines that fit behind an indentation; a terminal's only, a pipe gets one line.
std::string Wrapped(std::string_view text, std::size_t indent) {
  if (!IsTerminal(Stream::Output)) return std::string(text);
  constexpr std::size_t kLeast = 16;
  const auto columns = static_cast<std::size_t>(Width(Stream::Output));
  const std::size_t room = columns > indent + kLeast ? columns - indent : kLeast;
  std::string lines, line;
  while (!text.empty()) {
    const std::string_view word = text.substr(0, text.find(' '));
    if (!line.empty() && CharacterCount(line) + CharacterCount(word) >= room) {
      lines += line + "\n" + std::string(indent, ' ');
      line.clear();
    }
    line += (line.empty() ? "" : " ") + std::string(word);
    text.remove_prefix(std::min(word.size() + 1, text.size()));
  }
  return lines + line;
}

/// Narrow terminals have the text below the names.
std::size_t Indent() {
  constexpr int kNarrow = 60;
  return IsTerminal(Stream::Output) && Width(Stream::Output) < kNarrow ? 2
                                                                       : kStateWidth + kLayerWidth;
}

std::string Behind(const Finding& finding) {
  const std::size_t indent = Indent();
  const bool isBelow = indent < kStateWidth + kLayerWidth;
  return StateText(finding.state) +
         (isBelow ? finding.layer + "\n  " : Fitted(finding.layer, kLayerWidth)) +
         Wrapped(finding.tried + ": " + finding.seen, indent) + "\n";
}

std::string EndText(const Finding* verdict, WalkEnd end) {
  if (end == WalkEnd::Interrupted) return "interrupted before the end";
  if (verdict == nullptr && end == WalkEnd::Late) {
    return "not known: the limit of all steps came first; --total changes it";
  }
  return VerdictText(verdict);
}

Json Text(const std::string& text) { return text.empty() ? Json(nullptr) : Json(text); }

Json ToJson(const Finding& finding) {
  return {{"layer", finding.layer}, {"state", NameOf(finding.state)}, {"tried", finding.tried},
          {"seen", finding.seen},   {"next", Text(finding.next)},     {"seconds", finding.seconds}};
}

}  // namespace

void PrintDoctorHead(const DoctorRequest& request) {
  const std::string proxy =
      request.proxy.type == NoProxy
          ? ""
          : " through the proxy " + HostAndPortText(request.proxy.host, request.proxy.port);
  Print(Styled(Style::Bold, "DOCTOR " + request.target.shown) + proxy + "\n");
  Flush();
}

bool PrintFinding(const Finding& finding) {
  Print(Behind(finding));
  if (!finding.next.empty()) {
    const std::size_t indent = Indent();
    Print(std::string(indent, ' ') + Wrapped("next: " + finding.next, indent) + "\n");
  }
  return Flush();
}

void PrintVerdict(const Finding* verdict, WalkEnd end) {
  constexpr std::string_view kHead = "verdict:";
  const bool good = verdict == nullptr && end == WalkEnd::Whole;
  Print(Styled(good ? Style::Green : Style::Red, kHead) + " " +
        Wrapped(EndText(verdict, end), kHead.size() + 1) + "\n");
}

void PrintDoctorJson(const Checkup& checkup, const Finding* verdict, WalkEnd end, double seconds) {
  const DoctorRequest& request = checkup.request;
  Json layers = Json::array();
  for (const Finding& finding : checkup.Findings()) layers.push_back(ToJson(finding));
  const Json proxy = checkup.HasProxy()
                         ? Json{{"host", request.proxy.host}, {"port", request.proxy.port}}
                         : Json(nullptr);
  PrintObject({
      {"host", request.target.host},
      {"port", request.target.port},
      {"url", request.target.isHttp ? Json(request.target.shown) : Json(nullptr)},
      {"proxy", proxy},
      {"ok", verdict == nullptr && end == WalkEnd::Whole},
      {"interrupted", end == WalkEnd::Interrupted},
      {"seconds", seconds},
      {"verdict",
       {{"layer", verdict == nullptr ? Json(nullptr) : Json(verdict->layer)},
        {"state", verdict == nullptr ? "ok" : NameOf(verdict->state)},
        {"text", EndText(verdict, end)}}},
      {"layers", std::move(layers)},
  });
}

}  // namespace netro::tool
