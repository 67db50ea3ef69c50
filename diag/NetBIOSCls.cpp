// NetBIOSCls: the texts, the own adapters, and the entry to the queries, which touch the object no
// more.
#include <netro/Localization.h>
#include <netro/NetBIOSCls.h>

#include <algorithm>
#include <iterator>
#include <limits>
#include <new>
#include <vector>

#include "diag/ArpQuery.h"
#include "diag/NetBiosCodes.h"
#include "diag/NodeStatusQuery.h"
#include "platform/CallState.h"
#include "platform/HostInfo.h"
#include "platform/Interfaces.h"
#include "support/Text.h"

namespace netro {
namespace {

constexpr std::int16_t kMostAdapters = 254;
constexpr std::uint8_t kEthernet = 0xFE;

// In the order of their texts.
constexpr std::int32_t kFirstText = 10000;
constexpr std::int32_t kCodes[] = {0x01, 0x03, 0x05, 0x06, 0x07, 0x08, 0x09, 0x0A, 0x0B, 0x0D,
                                   0x0E, 0x0F, 0x11, 0x12, 0x13, 0x14, 0x15, 0x16, 0x17, 0x18,
                                   0x19, 0x21, 0x22, 0x23, 0x24, 0x26, 0x30, 0x34, 0x35, 0x36,
                                   0x37, 0x38, 0x39, 0x3B, 0x3C, 0x3F, 0x40, 0xFF};

template <class T>
void SetCounter(T& counter, std::uint64_t value) {
  counter = static_cast<T>(std::min<std::uint64_t>(value, std::numeric_limits<T>::max()));
}

AdapterStatus StatusOf(const NetworkInterface& adapter) {
  AdapterStatus status;
  status.address = adapter.address.value_or(HardwareAddress());
  status.adapterType = adapter.ethernet ? kEthernet : std::uint8_t{0};
  SetCounter(status.iframeRecvErr, adapter.counters.receiveErrors);
  SetCounter(status.xmitAborts, adapter.counters.sendAborted);
  SetCounter(status.xmitSuccess, adapter.counters.sent);
  SetCounter(status.recvSuccess, adapter.counters.received);
  SetCounter(status.iframeXmitErr, adapter.counters.sendErrors);
  SetCounter(status.recvBuffUnavail, adapter.counters.receiveDropped);
  SetCounter(status.xmitBufUnavail, adapter.counters.sendDropped);
  return status;
}

std::int32_t ReadOwnAdapter(std::int16_t number, AdapterStatus& status) {
  std::vector<NetworkInterface> adapters;
  if (ReadInterfaces(adapters) != 0) return kNetBiosSystemError;
  std::erase_if(adapters, [](const NetworkInterface& one) { return one.loopback; });
  const auto at = static_cast<std::size_t>(number);
  if (at >= adapters.size()) return kNetBiosNoAdapter;
  status = StatusOf(adapters[at]);
  return 0;
}

// With or without its domain.
bool IsOwnName(const std::string& name) {
  const std::string own = ReadHostName();
  return EqualsIgnoreCase(name, own) || EqualsIgnoreCase(name, own.substr(0, own.find('.')));
}

// Names of NetBIOS are often handed over filled up with blanks.
std::int32_t ReadStatus(std::int16_t adapter, const std::string& hostName, const CancelMark& mark,
                        AdapterStatus& status) {
  if (adapter < 0 || adapter >= kMostAdapters) return kNetBiosNoAdapter;
  const std::string host = Trim(hostName);
  if (host.empty() || host == "*" || IsOwnName(host)) return ReadOwnAdapter(adapter, status);
  return QueryNodeStatus(host, mark, status);
}

}  // namespace

NetBIOSCls::NetBIOSCls()
    : module_(SocketModule::ForThread()), call_(std::make_shared<CallState>()) {}

NetBIOSCls::~NetBIOSCls() { call_->Die(); }

bool NetBIOSCls::GetMacAddress(std::int16_t Adapter, std::string HostName, std::string Divider,
                               std::int32_t& ErrorCode) {
  const BusyScope busy(call_);
  if (busy.Refused()) {
    ErrorCode = kNetBiosBusy;
    return false;
  }
  try {
    AdapterStatus status;
    ErrorCode = ReadStatus(Adapter, HostName, CancelMark(module_, call_), status);
    if (ErrorCode != 0) return false;
    macAddress_ = FormatHardwareAddress(status.address, Divider);
    status_ = status;
    return true;
  } catch (const std::bad_alloc&) {
    ErrorCode = kNetBiosNoResources;
    return false;
  }
}

bool NetBIOSCls::GetRemoteMACAddress(const std::string& sRemoteIP, std::string Divider) try {
  const BusyScope busy(call_);
  const auto ip = ParseAddress(sRemoteIP);
  if (busy.Refused() || !ip) return false;
  const auto address = QueryHardwareAddress(*ip, CancelMark(module_, call_));
  if (!address) return false;
  macAddress_ = FormatHardwareAddress(*address, Divider);
  return true;
} catch (const std::bad_alloc&) {
  return false;
}

std::string NetBIOSCls::GetErrorText(std::int32_t ResultCode) const {
  if (ResultCode == 0) return {};
  const auto found = std::ranges::find(kCodes, ResultCode);  // the end is that of all others
  return GetMessageText(kFirstText + static_cast<std::int32_t>(found - std::begin(kCodes)));
}

void NetBIOSCls::StopWaiting() { call_->Stop(module_->MessageLoop()); }

void NetBIOSCls::Kill() { StopWaiting(); }

}  // namespace netro
