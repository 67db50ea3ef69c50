#include "doctor/SystemRoutes.h"

// Each needs those before it.
// clang-format off
#include <winsock2.h>
#include <ws2tcpip.h>
#include <iphlpapi.h>
// clang-format on

#include <algorithm>
#include <cstring>
#include <iterator>
#include <memory>
#include <system_error>

namespace netro::tool {
namespace {

template <class Address>
std::string TextOf(const Address& address) {
  const auto* any = reinterpret_cast<const sockaddr*>(&address);
  const int size = any->sa_family == AF_INET6 ? sizeof(sockaddr_in6) : sizeof(sockaddr_in);
  char text[NI_MAXHOST] = {};
  return getnameinfo(any, size, text, sizeof text, nullptr, 0, NI_NUMERICHOST) == 0 ? text : "";
}

std::string Narrow(const wchar_t* wide) {
  char text[1024] = {};
  WideCharToMultiByte(CP_UTF8, 0, wide, -1, text, sizeof text - 1, nullptr, nullptr);
  return text;
}

std::string NameOf(const NET_LUID& luid) {
  wchar_t name[NDIS_IF_MAX_STRING_SIZE + 1] = {};
  return ConvertInterfaceLuidToAlias(&luid, name, std::size(name)) == NO_ERROR ? Narrow(name) : "";
}

/// Connecting a datagram socket asks for the way and sends nothing.
void AskSystem(SystemRoute& route, SOCKADDR_INET& destination) {
  addrinfo wanted{};
  wanted.ai_flags = AI_NUMERICHOST;
  wanted.ai_socktype = SOCK_DGRAM;
  addrinfo* found = nullptr;
  if (getaddrinfo(route.destination.c_str(), "9", &wanted, &found) != 0) {
    route.refusal = "it is no address here";
    return;
  }
  const std::unique_ptr<addrinfo, decltype(&freeaddrinfo)> owner(found, &freeaddrinfo);
  const auto size = static_cast<int>(found->ai_addrlen);
  std::memcpy(&destination, found->ai_addr, found->ai_addrlen);
  const SOCKET socket = ::socket(found->ai_family, SOCK_DGRAM, 0);
  SOCKADDR_INET own{};
  int room = sizeof own;
  if (connect(socket, found->ai_addr, size) != 0) {
    route.refusal = std::system_category().message(WSAGetLastError());
  } else if (getsockname(socket, reinterpret_cast<sockaddr*>(&own), &room) == 0) {
    route.source = TextOf(own);
  }
  closesocket(socket);
}

bool IsUnset(const SOCKADDR_INET& address) {
  const std::string text = TextOf(address);
  return text.empty() || text == "0.0.0.0" || text == "::";
}

bool Asks(const std::vector<SystemAdapter>& adapters, const std::string& name) {
  const auto found = std::ranges::find(adapters, name, &SystemAdapter::name);
  return found != adapters.end() && found->asksNeighbours;
}

}  // namespace

bool IsLoopback(const std::string& address) {
  in_addr packed{};
  return address == "::1" ||
         (address.starts_with("127.") && inet_pton(AF_INET, address.c_str(), &packed) == 1);
}

SystemRoute FindRoute(const std::string& address, const std::vector<SystemAdapter>& adapters) {
  SystemRoute route;
  route.destination = address;
  SOCKADDR_INET destination{};
  AskSystem(route, destination);
  if (!route.refusal.empty() || IsLoopback(address) || route.source == address) return route;
  MIB_IPFORWARD_ROW2 row{};
  SOCKADDR_INET source{};
  if (GetBestRoute2(nullptr, 0, nullptr, &destination, 0, &row, &source) != NO_ERROR) return route;
  route.adapter = NameOf(row.InterfaceLuid);
  route.hasGateway = !IsUnset(row.NextHop);
  if (Asks(adapters, route.adapter))
    route.nextHop = route.hasGateway ? TextOf(row.NextHop) : address;
  return route;
}

}  // namespace netro::tool
