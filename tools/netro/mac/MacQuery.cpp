// The questions of "netro mac".

#include "mac/MacQuery.h"

#include <algorithm>
#include <cmath>
#include <utility>

#include "terminal/HostAddress.h"
#include "terminal/SystemAdapters.h"
#include "terminal/Timer.h"

namespace netro::tool {
namespace {

constexpr const char* kDivider = ":";

// Codes of NetBIOS.
constexpr std::int32_t kNoReply = 0x05;
constexpr std::int32_t kCancelled = 0x0B;
constexpr std::int32_t kNoAdapter = 0x23;

constexpr std::int32_t kLoopback = 3;  // of GetIPType

/// Takes the first of `adapters` with its MAC address: several may have the same.
void Name(MacAdapter& adapter, std::vector<SystemAdapter>& adapters) {
  const auto found = std::ranges::find_if(adapters, [&adapter](const SystemAdapter& other) {
    return (other.mac.empty() ? kNoMacAddress : other.mac) == adapter.address;
  });
  if (found == adapters.end()) return;
  adapter.name = std::move(found->name);
  adapter.addresses = std::move(found->addresses);
  adapters.erase(found);
}

}  // namespace

const std::vector<MacProperty>& MacProperties() {
  using N = const NetBIOSCls&;
  static const std::vector<MacProperty> properties = {
      {"AdapterType", "adapter type", [](N n) -> std::int32_t { return n.AdapterType(); }},
      {"RevMajor", "major version", [](N n) -> std::int32_t { return n.RevMajor(); }},
      {"RevMinor", "minor version", [](N n) -> std::int32_t { return n.RevMinor(); }},
      {"Duration", "minutes counted", [](N n) -> std::int32_t { return n.Duration(); }},
      {"NameCount", "names", [](N n) -> std::int32_t { return n.NameCount(); }},
      {"RecvSuccess", "received", [](N n) { return n.RecvSuccess(); }},
      {"XmitSuccess", "sent", [](N n) { return n.XmitSuccess(); }},
      {"FrmrRecv", "rejects received", [](N n) -> std::int32_t { return n.FrmrRecv(); }},
      {"FrmrXmit", "rejects sent", [](N n) -> std::int32_t { return n.FrmrXmit(); }},
      {"IframeRecvErr", "receive errors", [](N n) -> std::int32_t { return n.IframeRecvErr(); }},
      {"IframeXmitErr", "send errors", [](N n) -> std::int32_t { return n.IframeXmitErr(); }},
      {"XmitAborts", "sending aborted", [](N n) -> std::int32_t { return n.XmitAborts(); }},
      {"RecvBuffUnavail", "no receive buffer",
       [](N n) -> std::int32_t { return n.RecvBuffUnavail(); }},
      {"XmitBufUnavail", "no send buffer", [](N n) -> std::int32_t { return n.XmitBufUnavail(); }},
      {"T1Timeouts", "T1 time-outs", [](N n) -> std::int32_t { return n.T1Timeouts(); }},
      {"TiTimeouts", "Ti time-outs", [](N n) -> std::int32_t { return n.TiTimeouts(); }},
      {"FreeNcbs", "free commands", [](N n) -> std::int32_t { return n.FreeNcbs(); }},
      {"MaxCfgNcbs", "commands set up", [](N n) -> std::int32_t { return n.MaxCfgNcbs(); }},
      {"MaxNcbs", "most commands", [](N n) -> std::int32_t { return n.MaxNcbs(); }},
      {"MaxDgramSize", "longest datagram", [](N n) -> std::int32_t { return n.MaxDgramSize(); }},
      {"PendingSess", "pending sessions", [](N n) -> std::int32_t { return n.PendingSess(); }},
      {"MaxCfgSess", "sessions set up", [](N n) -> std::int32_t { return n.MaxCfgSess(); }},
      {"MaxSess", "most sessions", [](N n) -> std::int32_t { return n.MaxSess(); }},
      {"MaxSessPktSize", "longest packet", [](N n) -> std::int32_t { return n.MaxSessPktSize(); }},
  };
  return properties;
}

MacResult MacQuery::Ask(const MacOptions& options) {
  const auto milliseconds = static_cast<std::int32_t>(std::lround(options.timeout * 1000));
  bool isLate = false;
  const Timer limit(milliseconds, [this, &isLate] {
    isLate = true;
    StopWaiting();
  });
  if (options.host.empty()) {
    AskOwnAdapters();
  } else if (options.netBios) {
    AskNodeStatus(options.host);
  } else {
    AskNeighbour(options.host);
  }
  if (isLate && result_.error != 0) SetError(kNoReply);
  return std::move(result_);
}

void MacQuery::StopWaiting() {
  stopped_ = true;
  names_.StopWaiting();
  netBios_.StopWaiting();
}

void MacQuery::AskOwnAdapters() {
  std::int32_t error = 0;
  std::vector<SystemAdapter> adapters = ReadAdapters();
  std::erase_if(adapters, &SystemAdapter::isLoopback);
  for (std::int16_t number = 0; netBios_.GetMacAddress(number, "*", kDivider, error); ++number) {
    Name(Add(number, true), adapters);
  }
  const bool all = error == kNoAdapter && !result_.adapters.empty();
  SetError(all ? 0 : error);
  if (error == kNoAdapter && !all) result_.errorText = "there are none but loopback";
}

void MacQuery::AskNodeStatus(const std::string& host) {
  std::int32_t error = 0;
  if (netBios_.GetMacAddress(0, host, kDivider, error)) Add(std::nullopt, true);
  SetError(error);
}

void MacQuery::AskNeighbour(const std::string& host) {
  const HostAddress found = FindAddress(names_, host);
  result_.hostAddress = found.address;
  result_.error = found.error;
  result_.errorText = found.errorText;
  if (found.error != 0) return;
  if (!stopped_ && netBios_.GetRemoteMACAddress(found.address, kDivider)) {
    Add(std::nullopt, false);
    return;
  }
  SetError(stopped_ ? kCancelled : kNoReply);
  const bool v6 = found.address.find(':') != found.address.npos;
  if (names_.GetIPType(found.address) == kLoopback || found.address == "::1") {
    result_.errorText = "the loopback interface has no MAC address";
  } else if (!stopped_) {
    result_.errorText = std::string("no answer by ") + (v6 ? "neighbour discovery" : "ARP") +
                        "; nobody has this address, or it is not on a network of this computer";
  }
}

MacAdapter& MacQuery::Add(std::optional<std::int16_t> number, bool withStatus) {
  MacAdapter adapter{number, {}, {}, netBios_.MacAddress(), {}};
  if (withStatus) {
    for (const MacProperty& property : MacProperties()) {
      adapter.status.push_back(property.value(netBios_));
    }
  }
  return result_.adapters.emplace_back(std::move(adapter));
}

void MacQuery::SetError(std::int32_t error) {
  result_.error = error;
  result_.errorText = netBios_.GetErrorText(error);
}

}  // namespace netro::tool
