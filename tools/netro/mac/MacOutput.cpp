// How "netro mac" shows what it got.

#include "mac/MacOutput.h"

#include <algorithm>
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
std::string Text(const std::string& address) { return address == kNoMacAddress ? "none" : address; }

std::string Label(const MacOptions& options, const MacResult& result) {
  return result.hostAddress.empty() || result.hostAddress == options.host
             ? options.host
             : options.host + " (" + result.hostAddress + ")";
}

std::int32_t Status(const MacAdapter& adapter, std::string_view property) {
  const std::vector<MacProperty>& properties = MacProperties();
  const auto found = std::ranges::find(properties, property, &MacProperty::name);
  return adapter.status[static_cast<std::size_t>(found - properties.begin())];
}

/// The addresses stand below, one a line: those of IPv6 are long.
void PrintAdapters(const MacResult& result) {
  constexpr const char* kForm = "%7s  %-15s  %-17s  %10s  %10s  %8s";
  char text[128];
  std::snprintf(text, sizeof text, kForm, "adapter", "name", "MAC address", "received", "sent",
                "errors");
  Print(Styled(Style::Dim, text) + "\n");
  for (const MacAdapter& adapter : result.adapters) {
    const auto counter = [&adapter](std::string_view property) {
      return std::to_string(Status(adapter, property));
    };
    const std::int64_t errors =
        std::int64_t{Status(adapter, "IframeRecvErr")} + Status(adapter, "IframeXmitErr");
    std::snprintf(text, sizeof text, kForm, std::to_string(*adapter.number).c_str(),
                  adapter.name.c_str(), Text(adapter.address).c_str(),
                  counter("RecvSuccess").c_str(), counter("XmitSuccess").c_str(),
                  std::to_string(errors).c_str());
    Print(std::string(text) + "\n");
    for (const std::string& address : adapter.addresses) {
      Print(std::string(9, ' ') + address + "\n");
    }
  }
}

void PrintLine(std::string label, const std::string& text) {
  label.resize(kLabelWidth, ' ');
  Print(Styled(Style::Dim, label) + text + "\n");
}

/// What a host does not tell is 0.
void PrintStatus(const MacOptions& options, const MacAdapter& adapter) {
  PrintLine("host", options.host);
  PrintLine("MAC address", adapter.address == kNoMacAddress ? "not told" : adapter.address);
  for (std::size_t i = 0; i < adapter.status.size(); ++i) {
    if (adapter.status[i] != 0) {
      PrintLine(MacProperties()[i].label, std::to_string(adapter.status[i]));
    }
  }
}

Json ToJson(const MacAdapter& adapter) {
  Json object = {{"number", adapter.number ? Json(*adapter.number) : Json(nullptr)},
                 {"mac", adapter.address}};
  if (adapter.number) {
    object["name"] = adapter.name.empty() ? Json(nullptr) : Json(adapter.name);
    object["addresses"] = adapter.addresses;
  }
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
