// What the system says about its adapters and about the way that packets would take.

#include "doctor/SystemRoutes.h"

#include <arpa/inet.h>
#include <netdb.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdint>
#include <cstring>
#include <fstream>
#include <memory>
#include <sstream>
#include <system_error>

namespace netro::tool {
namespace {

std::string TextOf(const sockaddr* address) {
  const socklen_t size =
      address->sa_family == AF_INET6 ? sizeof(sockaddr_in6) : sizeof(sockaddr_in);
  char text[NI_MAXHOST] = {};
  return getnameinfo(address, size, text, sizeof text, nullptr, 0, NI_NUMERICHOST) == 0 ? text : "";
}

using Packed = std::array<std::uint8_t, 16>;  // of IPv4 the first four

Packed PackedOf(const std::string& address) {
  Packed packed{};
  const std::string bare = address.substr(0, address.find('%'));
  inet_pton(bare.find(':') == bare.npos ? AF_INET : AF_INET6, bare.c_str(), packed.data());
  return packed;
}

bool Covers(const Packed& network, int bits, const Packed& address) {
  for (int bit = 0; bit < bits; ++bit) {
    const auto byte = static_cast<std::size_t>(bit / 8);
    if (((network[byte] ^ address[byte]) >> (7 - bit % 8) & 1) != 0) return false;
  }
  return true;
}

struct TableRow {
  std::string adapter;
  Packed network{};
  int bits = 0;
  Packed gateway{};
  unsigned flags = 0;
};

constexpr unsigned kUp = 1;
constexpr unsigned kGateway = 2;

Packed FromWord(std::uint32_t word) {  // as it stands in memory
  Packed packed{};
  std::memcpy(packed.data(), &word, sizeof word);
  return packed;
}

std::vector<TableRow> ReadTable4() {
  std::vector<TableRow> rows;
  std::ifstream file("/proc/net/route");
  std::string line;
  for (std::getline(file, line); std::getline(file, line);) {
    std::istringstream fields(line);
    TableRow row;
    std::uint32_t network = 0, gateway = 0, mask = 0;
    std::string skipped;
    fields >> row.adapter >> std::hex >> network >> gateway >> row.flags >> skipped >> skipped >>
        skipped >> mask;
    row.network = FromWord(network);
    row.gateway = FromWord(gateway);
    row.bits = __builtin_popcount(mask);
    if (fields) rows.push_back(row);
  }
  return rows;
}

Packed FromHex(const std::string& digits) {
  Packed packed{};
  for (std::size_t i = 0; i < packed.size() && 2 * i + 1 < digits.size(); ++i) {
    packed[i] = static_cast<std::uint8_t>(std::stoul(digits.substr(2 * i, 2), nullptr, 16));
  }
  return packed;
}

std::vector<TableRow> ReadTable6() {
  std::vector<TableRow> rows;
  std::ifstream file("/proc/net/ipv6_route");
  for (std::string line; std::getline(file, line);) {
    std::istringstream fields(line);
    std::string network, from, gateway, skipped;
    TableRow row;
    fields >> network >> std::hex >> row.bits >> from >> skipped >> gateway >> skipped >> skipped >>
        skipped >> row.flags >> row.adapter;
    if (!fields) continue;
    row.network = FromHex(network);
    row.gateway = FromHex(gateway);
    rows.push_back(row);
  }
  return rows;
}

/// The row of the main table that fits best.
const TableRow* BestOf(const std::vector<TableRow>& rows, const std::string& address) {
  const Packed packed = PackedOf(address);
  const TableRow* best = nullptr;
  for (const TableRow& row : rows) {
    const bool fits = (row.flags & kUp) != 0 && Covers(row.network, row.bits, packed);
    if (fits && (best == nullptr || row.bits > best->bits)) best = &row;
  }
  return best;
}

/// Connecting a datagram socket asks for the way and sends nothing.
void AskSystem(SystemRoute& route) {
  addrinfo wanted{};
  wanted.ai_flags = AI_NUMERICHOST;
  wanted.ai_socktype = SOCK_DGRAM;
  addrinfo* found = nullptr;
  if (getaddrinfo(route.destination.c_str(), "9", &wanted, &found) != 0) {
    route.refusal = "it is no address here";
    return;
  }
  const std::unique_ptr<addrinfo, decltype(&freeaddrinfo)> owner(found, &freeaddrinfo);
  const int descriptor = ::socket(found->ai_family, SOCK_DGRAM | SOCK_CLOEXEC, 0);
  sockaddr_storage own{};
  socklen_t size = sizeof own;
  if (descriptor < 0 || ::connect(descriptor, found->ai_addr, found->ai_addrlen) != 0) {
    route.refusal = std::generic_category().message(errno);
  } else if (::getsockname(descriptor, reinterpret_cast<sockaddr*>(&own), &size) == 0) {
    route.source = TextOf(reinterpret_cast<sockaddr*>(&own));
  }
  if (descriptor >= 0) ::close(descriptor);
}

bool Asks(const std::vector<SystemAdapter>& adapters, const std::string& name) {
  const auto found = std::ranges::find(adapters, name, &SystemAdapter::name);
  return found != adapters.end() && found->asksNeighbours;
}

}  // namespace

bool IsLoopback(const std::string& address) {
  return address == "::1" || (address.starts_with("127.") && PackedOf(address)[0] == 127);
}

SystemRoute FindRoute(const std::string& address, const std::vector<SystemAdapter>& adapters) {
  SystemRoute route;
  route.destination = address;
  AskSystem(route);
  if (!route.refusal.empty() || IsLoopback(address) || route.source == address) return route;
  const bool isIPv6 = address.find(':') != address.npos;
  const std::vector<TableRow> rows = isIPv6 ? ReadTable6() : ReadTable4();
  const TableRow* row = BestOf(rows, address);
  if (row == nullptr) return route;  // another table's
  route.adapter = row->adapter;
  route.hasGateway = (row->flags & kGateway) != 0;
  if (!Asks(adapters, row->adapter)) return route;
  route.nextHop = address;
  if (route.hasGateway) {
    char text[INET6_ADDRSTRLEN] = {};
    inet_ntop(isIPv6 ? AF_INET6 : AF_INET, row->gateway.data(), text, sizeof text);
    route.nextHop = text;
    if (route.nextHop.starts_with("fe80:")) route.nextHop += "%" + row->adapter;
  }
  return route;
}

}  // namespace netro::tool
