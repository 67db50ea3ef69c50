#include "platform/linux/MessageBatch.h"

#include <linux/errqueue.h>
#include <time.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

namespace netro {
namespace {

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
  message.error = {value.error.ee_type, value.error.ee_code, FromSystem(offender).ip};
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

void MessageBatch::Prepare(int handle, AddressFamily family, bool errorQueue) {
  const bool v6 = family == AddressFamily::IPv6;
  const int level = v6 ? IPPROTO_IPV6 : IPPROTO_IP;
  SwitchOn(handle, SOL_SOCKET, SO_TIMESTAMPNS);
  SwitchOn(handle, level, v6 ? IPV6_RECVHOPLIMIT : IP_RECVTTL);
  if (errorQueue) SwitchOn(handle, level, v6 ? IPV6_RECVERR : IP_RECVERR);
}

void MessageBatch::Reserve(std::size_t size) {
  if (size <= size_) return;
  room_.reset(new std::uint8_t[size * kMost]);  // left unset: the system fills it
  size_ = size;
}

int MessageBatch::Receive(int handle, bool errorQueue) {
  for (std::size_t i = 0; i < kMost; ++i) {
    Slot& slot = slots_[i];
    slot.bytes = {room_.get() + i * size_, size_};
    msghdr& header = headers_[i].msg_hdr;
    header = {};
    slot.name = {};
    header.msg_name = slot.name.Generic();
    header.msg_namelen = slot.name.size;
    header.msg_iov = &slot.bytes;
    header.msg_iovlen = 1;
    header.msg_control = slot.control.data();
    header.msg_controllen = slot.control.size();
  }
  const int flags = MSG_DONTWAIT | (errorQueue ? MSG_ERRQUEUE : 0);
  int count = 0;
  do {
    count = recvmmsg(handle, headers_.data(), kMost, flags, nullptr);
  } while (count < 0 && errno == EINTR);
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
