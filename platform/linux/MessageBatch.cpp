#include "platform/linux/MessageBatch.h"

#include <linux/errqueue.h>
#include <time.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "platform/linux/Descriptor.h"

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
struct ErrorAndOffender {
  sock_extended_err error;
  sockaddr_in offender;
};

std::int32_t BitsOf(const sockaddr_in& name) {
  return static_cast<std::int32_t>(name.sin_addr.s_addr);
}

void ReadError(const cmsghdr& control, BatchMessage& message) {
  const auto value = Read<ErrorAndOffender>(control);
  if (value.error.ee_origin != SO_EE_ORIGIN_ICMP) return;
  message.isIcmpError = true;
  message.error = {value.error.ee_type, value.error.ee_code, BitsOf(value.offender)};
}

std::chrono::system_clock::time_point ReadTime(const cmsghdr& control) {
  const auto stamp = Read<timespec>(control);
  return std::chrono::system_clock::time_point(std::chrono::seconds(stamp.tv_sec) +
                                               std::chrono::nanoseconds(stamp.tv_nsec));
}

void ReadControl(const cmsghdr& control, BatchMessage& message) {
  if (control.cmsg_level == SOL_SOCKET && control.cmsg_type == SCM_TIMESTAMPNS) {
    message.arrived = ReadTime(control);
  } else if (control.cmsg_level == IPPROTO_IP && control.cmsg_type == IP_TTL) {
    message.ttl = Read<int>(control);
  } else if (control.cmsg_level == IPPROTO_IP && control.cmsg_type == IP_RECVERR) {
    ReadError(control, message);
  }
}

void SwitchOn(int handle, int level, int option) {
  const int on = 1;
  setsockopt(handle, level, option, &on, sizeof on);
}

}  // namespace

void MessageBatch::Prepare(int handle, bool errorQueue) {
  SwitchOn(handle, SOL_SOCKET, SO_TIMESTAMPNS);
  SwitchOn(handle, IPPROTO_IP, IP_RECVTTL);
  if (errorQueue) SwitchOn(handle, IPPROTO_IP, IP_RECVERR);
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
    header.msg_name = &slot.name;
    header.msg_namelen = sizeof slot.name;
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
  message.address = BitsOf(slots_[index].name);
  for (const cmsghdr* at = CMSG_FIRSTHDR(&header); at != nullptr;
       at = CMSG_NXTHDR(const_cast<msghdr*>(&header), const_cast<cmsghdr*>(at))) {
    ReadControl(*at, message);
  }
  return message;
}

}  // namespace netro
