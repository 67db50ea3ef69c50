// ICMP sockets on Linux.
//
// A datagram ICMP socket sends with an identifier that the system chooses, receives the replies to
// it only, without the IP header, and, with IP_RECVERR, finds ICMP errors in its error queue, which
// begin with the request that they quote. A raw socket receives every ICMP packet of the host, with
// its IP header for IPv4 and without for IPv6. Checksums of IPv6 are the system's work both ways.
//
// An error in the queue is also told once by the next call on the socket, whichever it is: that
// call is tried again.
#include "platform/linux/IcmpSocket.h"

#include <netinet/icmp6.h>
#include <netinet/in.h>
#include <sys/socket.h>

#include <cerrno>
#include <optional>
#include <utility>
#include <vector>

#include "platform/ErrorNumbers.h"
#include "platform/linux/Descriptor.h"
#include "platform/linux/MessageBatch.h"

namespace netro {
namespace {

using std::chrono::system_clock;

constexpr int kBatchesPerTurn = 32;
constexpr int kTries = 8;                 // errors may come in as fast as calls tell them
constexpr int kBuffer = 4 * 1024 * 1024;  // asked for; the system gives what it may

// From <linux/icmp.h>, which does not go together with the C library's headers.
constexpr int kIcmpFilter = 1;
constexpr std::uint32_t kFilteredOut =
    ~((1U << 0) | (1U << 3) | (1U << 4) | (1U << 11) | (1U << 12));

void SetOption(int handle, int level, int option, int value) {
  setsockopt(handle, level, option, &value, sizeof value);
}

void PassAnswersOnly(int handle, AddressFamily family) {
  if (family == AddressFamily::IPv4) {
    return SetOption(handle, SOL_RAW, kIcmpFilter, static_cast<int>(kFilteredOut));
  }
  icmp6_filter filter;
  ICMP6_FILTER_SETBLOCKALL(&filter);
  for (const int type : {ICMP6_DST_UNREACH, ICMP6_PACKET_TOO_BIG, ICMP6_TIME_EXCEEDED,
                         ICMP6_PARAM_PROB, ICMP6_ECHO_REPLY}) {
    ICMP6_FILTER_SETPASS(type, &filter);
  }
  setsockopt(handle, IPPROTO_ICMPV6, ICMP6_FILTER, &filter, sizeof filter);
}

std::optional<IcmpAnswer> ReadRaw(AddressFamily family, const BatchMessage& message) {
  if (family == AddressFamily::IPv4) return ReadIcmpPacket(message.bytes);
  return ReadIcmp6Message(message.bytes, message.address, message.ttl);
}

// What a datagram socket receives.
std::optional<IcmpAnswer> ReadReply(AddressFamily family, const BatchMessage& message) {
  auto answer = ReadEchoReply(family, message.bytes);
  if (!answer) return std::nullopt;
  answer->from = answer->destination = message.address;
  answer->ttl = message.ttl;
  return answer;
}

std::optional<IcmpAnswer> ReadError(AddressFamily family, const BatchMessage& message) {
  if (!message.isIcmpError) return std::nullopt;
  const auto status = IcmpErrorStatus(family, message.error.type, message.error.code);
  auto answer = status ? ReadQuotedRequest(family, message.bytes) : std::nullopt;
  if (!answer) return std::nullopt;
  answer->status = *status;
  answer->type = message.error.type;
  answer->code = message.error.code;
  answer->labels = ReadMplsLabels(message.error.extensions);
  answer->from = message.error.from;
  answer->destination = message.address;
  answer->ttl = message.ttl;
  return answer;
}

}  // namespace

IcmpSocket::~IcmpSocket() {
  if (handle_ == 0) return;
  notifier_.Unwatch(handle_);
  CloseSocket(handle_);
}

std::int32_t IcmpSocket::Open(SocketWatcher& watcher) {
  constexpr int kFlags = SOCK_NONBLOCK | SOCK_CLOEXEC;
  const bool v6 = family_ == AddressFamily::IPv6;
  const int family = v6 ? AF_INET6 : AF_INET;
  const int protocol = v6 ? int{IPPROTO_ICMPV6} : int{IPPROTO_ICMP};
  kind_ = EchoSocket::Datagram;
  int made = AwayFromZero(socket(family, SOCK_DGRAM | kFlags, protocol));
  if (made < 0) {
    kind_ = EchoSocket::Raw;
    made = AwayFromZero(socket(family, SOCK_RAW | kFlags, protocol));
  }
  if (made < 0) return SocketErrorNumber(errno);
  handle_ = made;  // from here on it is closed with the object
  if (const std::int32_t error = notifier_.Watch(made, SocketKind::Datagram, watcher)) return error;
  MessageBatch::Prepare(handle_, family_, kind_ == EchoSocket::Datagram);
  SetOption(handle_, SOL_SOCKET, SO_RCVBUF, kBuffer);
  SetOption(handle_, SOL_SOCKET, SO_SNDBUF, kBuffer);
  if (kind_ == EchoSocket::Raw) PassAnswersOnly(handle_, family_);
  return 0;
}

std::int32_t IcmpSocket::SetTtl(std::int32_t ttl) {
  if (ttl == ttl_) return 0;
  const bool v6 = family_ == AddressFamily::IPv6;
  const int value = ttl == 0 ? -1 : ttl;
  if (setsockopt(handle_, v6 ? IPPROTO_IPV6 : IPPROTO_IP, v6 ? IPV6_UNICAST_HOPS : IP_TTL, &value,
                 sizeof value) != 0) {
    return SocketErrorNumber(errno);
  }
  ttl_ = ttl;
  return 0;
}

std::int32_t IcmpSocket::Send(std::span<const std::uint8_t> packet, const IpAddress& to) {
  // Else a raw socket sends on a link of the system's choice.
  if (to.IsLinkLocal() && to.Scope() == 0) return kErrInvalidArgument;
  const SocketAddress name{to, 0};
  std::int32_t error = 0;
  if (notifier_.Send(handle_, packet, error, &name) >= 0) return 0;
  // So a raw socket tells that its buffer is full.
  if (kind_ == EchoSocket::Raw && error == kErrNoBuffers) {
    notifier_.AwaitRoom(handle_);
    return kErrWouldBlock;
  }
  return error;
}

// Errors are taken first and used last: whatever came before them is then in the other queue, and a
// reply counts more than an error.
bool IcmpSocket::Receive(MessageBatch& batch, const Take& take) {
  std::vector<std::pair<IcmpAnswer, system_clock::time_point>> errors;
  bool all = true;
  if (kind_ == EchoSocket::Datagram) {
    all = ReadQueue(batch, true, [&](const auto& answer, auto arrived) {
      errors.emplace_back(answer, arrived);
    });
  }
  all = ReadQueue(batch, false, take) && all;
  for (const auto& [answer, arrived] : errors) take(answer, arrived);
  return all;
}

// False when there may be more: what comes after a batch that is not full is notified anew.
bool IcmpSocket::ReadQueue(MessageBatch& batch, bool errors, const Take& take) {
  for (int batches = 0; batches < kBatchesPerTurn; ++batches) {
    const system_clock::time_point start = system_clock::now();
    int count = -1;
    for (int tries = 0; tries < kTries && count < 0; ++tries) {
      count = batch.Receive(handle_, errors);
      if (count < 0 && errno == EAGAIN) {
        lacksMemory_ = false;
        return true;
      }
    }
    // To try again at once would keep the thread busy. What lies there is read with the next that
    // comes, or at the deadline.
    lacksMemory_ = count < 0 && (errno == ENOMEM || errno == ENOBUFS);
    if (count < 0) return true;
    for (int i = 0; i < count; ++i) {
      const BatchMessage message = batch[static_cast<std::size_t>(i)];
      const auto answer = kind_ == EchoSocket::Raw ? ReadRaw(family_, message)
                          : errors                 ? ReadError(family_, message)
                                                   : ReadReply(family_, message);
      if (answer) take(*answer, message.arrived);
      stamps_ |= message.arrived != system_clock::time_point() && message.arrived < start;
    }
    if (count < static_cast<int>(MessageBatch::kMost)) return true;
  }
  return false;
}

}  // namespace netro
