// How "netro mac" shows what it got.

#include "mac/MacOutput.h"

#include <cstdio>
#include <nlohmann/json.hpp>
#include <string>
#include <string_view>

#include "terminal/FailureText.h"
#include "terminal/JsonOutput.h"
#include "terminal/Terminal.h"

namespace netro::tool {
namespace {

using Json = nlohmann::ordered_json;

constexpr std::size_t kLabelWidth = 19;
constexpr const char* kNoAddress = "00:00:00:00:00:00";
/// What the list of adapters has of their status.
constexpr const char* kColumns[] = {"RecvSuccess", "XmitSuccess", "IframeRecvErr", "IframeXmitErr"};

std::string Text(const std::string& address) { return address == kNoAddress ? "none" : address; }

std::string Label(const MacOptions& options, const MacResult& result) {
  return result.hostAddress.empty() || result.hostAddress == options.host
             ? options.host
             : options.host + " (" + result.hostAddress + ")";
}

std::string Row(const std::string& number, const std::string& address,
                const std::vector<std::string>& counters) {
  char text[64];
  std::snprintf(text, sizeof text, "%7s  %-17s", number.c_str(), address.c_str());
  std::string row = text;
  for (const std::string& counter : counters) {
    std::snprintf(text, sizeof text, "  %14s", counter.c_str());
    row += text;
  }
  return row;
}

bool IsColumn(const char* property) {
  for (const std::string_view column : kColumns) {
    if (column == property) return true;
  }
  return false;
}

void PrintAdapters(const MacResult& result) {
  const std::vector<MacProperty>& properties = MacProperties();
  std::vector<std::string> labels;
  for (const MacProperty& property : properties) {
    if (IsColumn(property.name)) labels.emplace_back(property.label);
  }
  Print(Styled(Style::Dim, Row("adapter", "MAC address", labels)) + "\n");
  for (const MacAdapter& adapter : result.adapters) {
    std::vector<std::string> counters;
    for (std::size_t i = 0; i < properties.size(); ++i) {
      if (IsColumn(properties[i].name)) counters.push_back(std::to_string(adapter.status[i]));
    }
    Print(Row(std::to_string(adapter.number.value_or(0)), Text(adapter.address), counters) + "\n");
  }
}

void PrintLine(std::string label, const std::string& text) {
  label.resize(kLabelWidth, ' ');
  Print(Styled(Style::Dim, label) + text + "\n");
}

/// What a host does not tell is 0.
void PrintStatus(const MacOptions& options, const MacAdapter& adapter) {
  PrintLine("host", options.host);
  PrintLine("MAC address", adapter.address == kNoAddress ? "not told" : adapter.address);
  for (std::size_t i = 0; i < adapter.status.size(); ++i) {
    if (adapter.status[i] != 0) {
      PrintLine(MacProperties()[i].label, std::to_string(adapter.status[i]));
    }
  }
}

Json ToJson(const MacAdapter& adapter) {
  Json object = {{"number", adapter.number ? Json(*adapter.number) : Json(nullptr)},
                 {"mac", adapter.address}};
  for (std::size_t i = 0; i < adapter.status.size(); ++i) {
    object["status"][MacProperties()[i].name] = adapter.status[i];
  }
  return object;
}

}  // namespace

void PrintMac(const MacOptions& options, const MacResult& result) {
  if (result.adapters.empty()) return;
  if (options.host.empty()) {
    PrintAdapters(result);
  } else if (options.netBios) {
    PrintStatus(options, result.adapters.front());
  } else {
    Print(Label(options, result) + "  " + result.adapters.front().address + "\n");
  }
}

void PrintMacJson(const MacOptions& options, const MacResult& result, double seconds) {
  const auto text = [](const std::string& value) {
    return value.empty() ? Json(nullptr) : Json(value);
  };
  const bool v6 = result.hostAddress.find(':') != std::string::npos;
  const char* method = options.host.empty() ? "adapters"
                       : options.netBios    ? "netbios"
                       : v6                 ? "ndp"
                                            : "arp";
  Json object = {{"host", text(options.host)},
                 {"address", text(result.hostAddress)},
                 {"method", method},
                 {"ok", result.error == 0},
                 {"error", {{"number", result.error}, {"text", result.errorText}}},
                 {"seconds", seconds},
                 {"adapters", Json::array()}};
  for (const MacAdapter& adapter : result.adapters) object["adapters"].push_back(ToJson(adapter));
  PrintObject(object);
}

void ExplainMac(const MacOptions& options, const MacResult& result) {
  if (result.error == 0) return;
  std::string what = "cannot list the adapters of this computer";
  std::string advice;
  if (options.netBios) {
    what = "no node status of " + options.host;
    constexpr std::int32_t kNoReply = 0x05;
    if (result.error == kNoReply) advice = "; it has no NetBIOS, or a firewall is between";
  } else if (!options.host.empty()) {
    what = "no MAC address of " + Label(options, result);
  }
  ShowMessage(FailureText(what, result.error, result.errorText) + advice);
}

}  // namespace netro::tool
