#include "platform/linux/MessageBatch.h"

#include <linux/errqueue.h>
#include <time.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

namespace netro {
namespace {

// IP_RECVERR_RFC4884 and its IPv6 twin, which older headers lack.
constexpr int kExtensionsOfErrors = 26;
constexpr int kIPv6ExtensionsOfErrors = 31;

template <class Value>
Value Read(const cmsghdr& control) {
  Value value{};
  if (control.cmsg_len >= CMSG_LEN(sizeof value)) {
    std::memcpy(&value, CMSG_DATA(&control), sizeof value);
  }
  return value;
}

// The address of who sent the ICMP message stands behind the error.
template <class Name>
struct ErrorAndOffender {
  sock_extended_err error;
  Name offender;
};

template <class Name>
void ReadError(const cmsghdr& control, std::uint8_t origin, BatchMessage& message) {
  const auto value = Read<ErrorAndOffender<Name>>(control);
  if (value.error.ee_origin != origin) return;
  SystemAddress offender;
  std::memcpy(offender.Generic(), &value.offender, sizeof value.offender);
  message.isIcmpError = true;
  message.error = {value.error.ee_type, value.error.ee_code, FromSystem(offender).ip, {}};
  const auto& told = value.error.ee_rfc4884;
  const bool sound = (told.flags & SO_EE_RFC4884_FLAG_INVALID) == 0;
  if (told.len > 0 && told.len <= message.bytes.size() && sound) {
    message.error.extensions = message.bytes.subspan(told.len);
  }
}

std::chrono::system_clock::time_point ReadTime(const cmsghdr& control) {
  const auto stamp = Read<timespec>(control);
  return std::chrono::system_clock::time_point(std::chrono::seconds(stamp.tv_sec) +
                                               std::chrono::nanoseconds(stamp.tv_nsec));
}

bool Is(const cmsghdr& control, int level, int type) {
  return control.cmsg_level == level && control.cmsg_type == type;
}

void ReadControl(const cmsghdr& control, BatchMessage& message) {
  if (Is(control, SOL_SOCKET, SCM_TIMESTAMPNS)) {
    message.arrived = ReadTime(control);
  } else if (Is(control, IPPROTO_IP, IP_TTL) || Is(control, IPPROTO_IPV6, IPV6_HOPLIMIT)) {
    message.ttl = Read<int>(control);
  } else if (Is(control, IPPROTO_IP, IP_RECVERR)) {
    ReadError<sockaddr_in>(control, SO_EE_ORIGIN_ICMP, message);
  } else if (Is(control, IPPROTO_IPV6, IPV6_RECVERR)) {
    ReadError<sockaddr_in6>(control, SO_EE_ORIGIN_ICMP6, message);
  }
}

void SwitchOn(int handle, int level, int option) {
  const int on = 1;
  setsockopt(handle, level, option, &on, sizeof on);
}

}  // namespace

SendTime SendTime::Now() {
  SendTime time;
  time.wall_ = std::chrono::system_clock::now();
  time.steady_ = std::chrono::steady_clock::now();
  return time;
}

std::chrono::nanoseconds SendTime::Until(std::chrono::system_clock::time_point arrived) const {
  const std::chrono::nanoseconds elapsed = std::chrono::steady_clock::now() - steady_;
  const std::chrono::nanoseconds stamped = arrived - wall_;
  return stamped.count() >= 0 && stamped <= elapsed ? stamped : elapsed;
}

void MessageBatch::Prepare(int handle, AddressFamily family, bool errorQueue) {
  const bool v6 = family == AddressFamily::IPv6;
  const int level = v6 ? IPPROTO_IPV6 : IPPROTO_IP;
  SwitchOn(handle, SOL_SOCKET, SO_TIMESTAMPNS);
  SwitchOn(handle, level, v6 ? IPV6_RECVHOPLIMIT : IP_RECVTTL);
  if (!errorQueue) return;
  SwitchOn(handle, level, v6 ? IPV6_RECVERR : IP_RECVERR);
  SwitchOn(handle, level, v6 ? kIPv6ExtensionsOfErrors : kExtensionsOfErrors);
}

void MessageBatch::Reserve(std::size_t size) {
  if (size <= size_) return;
  room_.reset(new std::uint8_t[size * kMost]);  // left unset: the system fills it
  size_ = size;
  used_ = kMost;
}

void MessageBatch::MakeReady(std::size_t index) {
  Slot& slot = slots_[index];
  slot.bytes = {room_.get() + index * size_, size_};
  msghdr& header = headers_[index].msg_hdr;
  header = {};
  slot.name = {};
  header.msg_name = slot.name.Generic();
  header.msg_namelen = slot.name.size;
  header.msg_iov = &slot.bytes;
  header.msg_iovlen = 1;
  header.msg_control = slot.control.data();
  header.msg_controllen = slot.control.size();
}

int MessageBatch::Receive(int handle, bool errorQueue) {
  for (; used_ > 0; --used_) MakeReady(used_ - 1);
  const int flags = MSG_DONTWAIT | (errorQueue ? MSG_ERRQUEUE : 0);
  int count = 0;
  do {
    count = recvmmsg(handle, headers_.data(), kMost, flags, nullptr);
  } while (count < 0 && errno == EINTR);
  used_ = static_cast<std::size_t>(std::max(count, 0));
  return count;
}

BatchMessage MessageBatch::operator[](std::size_t index) const {
  const msghdr& header = headers_[index].msg_hdr;
  BatchMessage message;
  const std::size_t length = std::min<std::size_t>(headers_[index].msg_len, size_);
  message.bytes = {room_.get() + index * size_, length};
  message.address = FromSystem(slots_[index].name).ip;
  for (const cmsghdr* at = CMSG_FIRSTHDR(&header); at != nullptr;
       at = CMSG_NXTHDR(const_cast<msghdr*>(&header), const_cast<cmsghdr*>(at))) {
    ReadControl(*at, message);
  }
  return message;
}

}  // namespace netro
