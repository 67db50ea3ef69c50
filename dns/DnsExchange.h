// One exchange with a DNS server: a query out, the reply in. On the caller's thread, under the
// caller's cancellation; what waits here touches nothing that an event may delete.
#pragma once

#include <netro/Types.h>

#include <cstdint>
#include <string>

#include "dns/DnsMessage.h"
#include "socket/DatagramExchange.h"
#include "socket/OpenConnection.h"
#include "socket/Wait.h"

namespace netro {

struct DnsServer {
  std::string host;
  std::int32_t port = 53;
};

/// Sends the query in one datagram and waits for its reply. Looking the server up does not count,
/// but nothing goes on beyond the limit. Returns 0 when `message` is a reply to the query, else the
/// error number.
/// `tries` holds what was asked before; `query` must stay as long as that.
std::int32_t AskOverUdp(const DnsServer& server, const Bytes& query, DatagramExchange& tries,
                        const CancelMark& mark, std::chrono::milliseconds wait, TimePoint limit,
                        Bytes& message);

/// Of an exchange over TCP.
struct DnsTcpResult {
  explicit DnsTcpResult(const DnsReading& reading) : reply(reading) {}

  std::int32_t code = 0;  // 0, the server's, 22, 56, or an error number
  DnsReply reply;
  Bytes message;  // the first one, empty when none came
};

/// Sends the query and reads the reply, or with `transfer` the messages of a zone transfer (RFC
/// 5936), up to the SOA record that closes it. Connecting and each wait for bytes may take the
/// plan's seconds. Replies are read as `reading` says. What a transfer has brought before it failed
/// is there; its records may take `most` bytes of memory, else 10040.
inline constexpr std::uint64_t kMostMemory = std::uint64_t{2} << 30;
DnsTcpResult AskOverTcp(const ConnectionPlan& plan, const Bytes& query, bool transfer,
                        const DnsReading& reading, const CancelMark& mark,
                        std::uint64_t most = kMostMemory);

}  // namespace netro
