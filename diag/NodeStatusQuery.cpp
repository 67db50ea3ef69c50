#include "diag/NodeStatusQuery.h"

#include "diag/NetBiosCodes.h"
#include "diag/NodeStatus.h"
#include "platform/ErrorNumbers.h"
#include "platform/Random.h"
#include "socket/DatagramSocket.h"
#include "socket/HostLookup.h"

namespace netro {
namespace {

constexpr std::int32_t kNameServicePort = 137;
constexpr int kRequests = 4;  // one, and three retries
constexpr long kSecondsForReply = 1;

// A host where nobody listens will not answer later either.
std::int32_t ResultOf(std::int32_t error) {
  if (error == kErrRefused) return kNetBiosTimedOut;
  return error == 0 ? 0 : static_cast<std::int32_t>(kNetBiosSystemError);
}

// All requests leave from one socket with one ID, so that a late reply to any of them counts.
std::int32_t Ask(const IpAddress& ip, const CancelMark& mark, Bytes& reply) {
  const auto id = static_cast<std::uint16_t>(RandomNumber());
  const Bytes request = ComposeNodeStatusRequest(id);
  DatagramSocket socket(mark.Module().Notifications(), mark.Object());
  if (socket.Open({.connected = true}, {ip, kNameServicePort}) != 0) return kNetBiosSystemError;
  socket.TakeOnly([=](auto datagram) { return MayAnswerNodeStatus(datagram, id); });
  for (int i = 0; i < kRequests; ++i) {
    if (mark.Expired()) return kNetBiosTimedOut;
    const std::int32_t error = socket.Send(request);
    if (error == kErrRefused) return kNetBiosTimedOut;
    if (error != 0 && error != kErrWouldBlock) return kNetBiosSystemError;
    const WaitEnd end =
        WaitUntil(mark, SecondsFromNow(kSecondsForReply), [&] { return socket.Readable(); });
    if (mark.Cancelled()) return kNetBiosCancelled;
    if (end == WaitEnd::Done) return ResultOf(socket.Take(reply));
  }
  return kNetBiosTimedOut;
}

}  // namespace

std::int32_t QueryNodeStatus(const std::string& host, const CancelMark& mark,
                             AdapterStatus& status) {
  const LookupAnswer answer = ResolveHost(host, {std::nullopt, onlyIPv4}, mark, TimePoint::max());
  if (mark.Cancelled()) return kNetBiosCancelled;
  if (answer.error != 0) return kNetBiosNoCallName;
  Bytes reply;
  if (const std::int32_t error = Ask(answer.First(), mark, reply)) return error;
  return ReadNodeStatus(reply, status) ? 0 : kNetBiosIncomplete;
}

}  // namespace netro
