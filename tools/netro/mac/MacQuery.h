// The questions of "netro mac". Thread: the loop's; only StopWaiting may be called from a signal
// handler.
#pragma once

#include <netro/ICMPCls.h>
#include <netro/NetBIOSCls.h>

#include <atomic>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "mac/MacOptions.h"

namespace netro::tool {

/// A property of the adapter status.
struct MacProperty {
  const char* name;  // in NetBIOSCls
  const char* label;
  std::int32_t (*value)(const NetBIOSCls& netBios);
};

const std::vector<MacProperty>& MacProperties();

/// What NetBIOSCls says where there is none.
inline const std::string kNoMacAddress = "00:00:00:00:00:00";

struct MacAdapter {
  std::optional<std::int16_t> number;  // of an own one, which has these too
  std::string name;
  std::vector<std::string> addresses;
  std::string address;                 // "02:00:5E:00:00:0A"
  std::vector<std::int32_t> status;    // in the order of MacProperties; none by ARP
};

struct MacResult {
  std::string hostAddress;  // empty when it was not looked up or not found
  std::vector<MacAdapter> adapters;
  std::int32_t error = 0;
  std::string errorText;
};

class MacQuery {
 public:
  MacResult Ask(const MacOptions& options);
  /// Signal-safe.
  void StopWaiting();

 private:
  void AskOwnAdapters();
  void AskNeighbour(const std::string& host);
  void AskNodeStatus(const std::string& host);
  MacAdapter& Add(std::optional<std::int16_t> number, bool withStatus);
  void SetError(std::int32_t error);

  ICMPCls names_;
  NetBIOSCls netBios_;
  std::atomic<bool> stopped_ = false;
  MacResult result_;
};

}  // namespace netro::tool
