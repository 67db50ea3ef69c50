#include "terminal/SystemAdapters.h"

// Each needs those before it.
// clang-format off
#include <winsock2.h>
#include <ws2tcpip.h>
#include <iphlpapi.h>
// clang-format on

#include <cstddef>
#include <cstdio>
#include <memory>

namespace netro::tool {
namespace {

std::string TextOf(const SOCKET_ADDRESS& address) {
  char text[NI_MAXHOST] = {};
  return getnameinfo(address.lpSockaddr, address.iSockaddrLength, text, sizeof text, nullptr, 0,
                     NI_NUMERICHOST) == 0
             ? text
             : "";
}

std::string Narrow(const wchar_t* wide) {
  char text[1024] = {};
  WideCharToMultiByte(CP_UTF8, 0, wide, -1, text, sizeof text - 1, nullptr, nullptr);
  return text;
}

struct AdapterList {
  AdapterList() {
    ULONG size = 1 << 14;
    do {
      bytes = std::make_unique<std::byte[]>(size);
      first = reinterpret_cast<IP_ADAPTER_ADDRESSES*>(bytes.get());
      error = GetAdaptersAddresses(AF_UNSPEC, GAA_FLAG_SKIP_MULTICAST, nullptr, first, &size);
    } while (error == ERROR_BUFFER_OVERFLOW);
    if (error != NO_ERROR) first = nullptr;
  }

  std::unique_ptr<std::byte[]> bytes;
  IP_ADAPTER_ADDRESSES* first = nullptr;
  ULONG error = NO_ERROR;
};

std::string MacOf(const IP_ADAPTER_ADDRESSES& entry) {
  std::string text;
  for (ULONG i = 0; i < entry.PhysicalAddressLength; ++i) {
    char digits[4];
    std::snprintf(digits, sizeof digits, i == 0 ? "%02X" : ":%02X", entry.PhysicalAddress[i]);
    text += digits;
  }
  return text;
}

SystemAdapter Read(const IP_ADAPTER_ADDRESSES& entry) {
  SystemAdapter adapter{.name = Narrow(entry.FriendlyName),
                        .isUp = entry.OperStatus == IfOperStatusUp,
                        .isEnabled = entry.OperStatus != IfOperStatusNotPresent,
                        .isLoopback = entry.IfType == IF_TYPE_SOFTWARE_LOOPBACK,
                        .asksNeighbours = entry.PhysicalAddressLength > 0,
                        .mac = MacOf(entry),
                        .addresses = {}};
  for (const auto* own = entry.FirstUnicastAddress; own != nullptr; own = own->Next) {
    adapter.addresses.push_back(TextOf(own->Address));
  }
  return adapter;
}

}  // namespace

std::vector<SystemAdapter> ReadAdapters() {
  std::vector<SystemAdapter> adapters;
  const AdapterList list;
  for (const auto* entry = list.first; entry != nullptr; entry = entry->Next) {
    adapters.push_back(Read(*entry));
  }
  return adapters;
}

}  // namespace netro::tool
