// What the tour prints.

#include "tour/TourReport.h"

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <nlohmann/json.hpp>
#include <string_view>
#include <utility>

#include "terminal/Encoding.h"
#include "terminal/JsonOutput.h"
#include "terminal/Terminal.h"
#include "terminal/Transfer.h"

namespace netro::tool {
namespace {

using Json = nlohmann::ordered_json;

constexpr std::size_t kLabelWidth = 13;
constexpr std::size_t kMostBodyLines = 12;
constexpr std::size_t kMostHexBytes = 64;

std::string Milliseconds(double seconds) {
  char text[32];
  std::snprintf(text, sizeof text, "%.1f ms", seconds * 1000);
  return text;
}

std::vector<std::string> LinesOf(std::string_view text) {
  std::vector<std::string> lines;
  while (!text.empty()) {
    const std::size_t end = std::min(text.find('\n'), text.size());
    lines.push_back(ShownText(text.substr(0, end)));
    text.remove_prefix(std::min(end + 1, text.size()));
  }
  return lines;
}

/// The lines under which a message is shown: text as such, a binary body by its size, other bytes
/// in hexadecimal with their meaning.
std::vector<std::string> LinesOf(const TourMessage& message) {
  if (message.bytes.empty()) return {"(" + message.meaning + ")"};
  if (!message.meaning.empty()) {
    const bool all = message.bytes.size() <= kMostHexBytes;
    return {Hex(message.bytes.substr(0, kMostHexBytes)) + (all ? "" : " ..."),
            "(" + message.meaning + ")"};
  }
  const std::size_t end = std::min(message.bytes.find("\r\n\r\n"), message.bytes.size());
  const std::string body = message.bytes.substr(std::min(end + 4, message.bytes.size()));
  std::vector<std::string> lines = LinesOf(ShownText(message.bytes.substr(0, end)));
  std::vector<std::string> bodyLines = LinesOf(ShownText(body));
  if (!IsHarmlessText(body)) {
    bodyLines = {"(" + ByteCount(static_cast<double>(body.size())) + ")"};
  } else if (bodyLines.size() > kMostBodyLines) {
    bodyLines.resize(kMostBodyLines);
    bodyLines.push_back("...");
  }
  if (body.find_first_not_of("\r\n") != body.npos) {
    lines.emplace_back();
    lines.insert(lines.end(), bodyLines.begin(), bodyLines.end());
  }
  return lines;
}

std::string Clipped(const std::string& line, std::size_t margin) {
  const auto width = static_cast<std::size_t>(Width(Stream::Output));
  if (!IsTerminal(Stream::Output) || line.size() + margin < width || width < margin + 4) {
    return line;
  }
  return line.substr(0, width - margin - 4) + "...";
}

void PrintMessage(const TourMessage& message) {
  std::string label = message.server;
  label.resize(std::max(kLabelWidth, label.size()), ' ');
  for (const std::string& line : LinesOf(message)) {
    const std::string shown = Clipped(line, kLabelWidth + 6);
    Print("    " + Styled(Style::Dim, label) + (message.fromClient ? "> " : "< "));
    Print((message.fromClient ? Styled(Style::Cyan, shown) : shown) + "\n");
    label.assign(label.size(), ' ');
  }
}

void PrintStep(std::size_t number, const TourStep& step) {
  char begin[16];
  std::snprintf(begin, sizeof begin, "%2zu  ", number);
  Print("\n" + Styled(Style::Bold, begin + step.title) + "\n");
  Print("    " + step.call + "\n");
  for (const TourMessage& message : step.messages) PrintMessage(message);
  Print("    " + (step.asExpected ? Styled(Style::Green, "as expected: ")
                                  : Styled(Style::Red, "NOT AS EXPECTED: ")));
  Print(ShownText(step.outcome) + Styled(Style::Dim, ", " + Milliseconds(step.seconds)) + "\n");
}

Json ToJson(const TourMessage& message) {
  Json object = {{"server", message.server}, {"from", message.fromClient ? "client" : "server"}};
  if (IsUtf8(message.bytes) && message.meaning.empty()) {
    object["text"] = message.bytes;
  } else {
    object["hex"] = Hex(message.bytes);
  }
  if (!message.meaning.empty()) object["meaning"] = message.meaning;
  return object;
}

Json ToJson(const std::string& section, const TourStep& step) {
  Json messages = Json::array();
  for (const TourMessage& message : step.messages) messages.push_back(ToJson(message));
  return {{"section", section},      {"title", step.title},
          {"call", step.call},       {"messages", std::move(messages)},
          {"outcome", step.outcome}, {"as_expected", step.asExpected},
          {"seconds", step.seconds}};
}

}  // namespace

void TourReport::BeginSection(const std::string& name, const std::string& about) {
  section_ = name;
  if (!json_) {
    Print((entries_.empty() ? "" : "\n") + Styled(Style::Bold, name) + "\n" + about + "\n");
  }
}

void TourReport::Add(TourStep step) {
  entries_.push_back({section_, std::move(step)});
  if (!json_) PrintStep(entries_.size(), entries_.back().step);
}

bool TourReport::Finish() {
  const auto good = static_cast<std::size_t>(
      std::ranges::count_if(entries_, [](const Entry& entry) { return entry.step.asExpected; }));
  const bool allGood = !entries_.empty() && good == entries_.size();
  if (json_) {
    PrintJson(allGood);
  } else {
    PrintSummary(good);
  }
  return allGood;
}

void TourReport::PrintSummary(std::size_t good) const {
  const std::string total = std::to_string(entries_.size());
  const std::string text = std::to_string(good) + " of " + total + " steps as expected";
  Print("\n" + Styled(good == entries_.size() ? Style::Green : Style::Red, text) +
        Styled(Style::Dim, ", " + Milliseconds(Seconds())) + "\n");
  for (std::size_t i = 0; i < entries_.size(); ++i) {
    if (!entries_[i].step.asExpected) {
      Print("  not as expected: " + std::to_string(i + 1) + " " + entries_[i].step.title + "\n");
    }
  }
}

void TourReport::PrintJson(bool good) const {
  Json steps = Json::array();
  std::int64_t goodSteps = 0;
  for (const Entry& entry : entries_) {
    steps.push_back(ToJson(entry.section, entry.step));
    goodSteps += entry.step.asExpected ? 1 : 0;
  }
  const Json object = {{"ok", good},
                       {"steps_total", entries_.size()},
                       {"steps_as_expected", goodSteps},
                       {"seconds", Seconds()},
                       {"steps", std::move(steps)}};
  PrintObject(object);
}

double TourReport::Seconds() const {
  return std::chrono::duration<double>(std::chrono::steady_clock::now() - begin_).count();
}

}  // namespace netro::tool
