// How a test does without a permission that it has.
#pragma once

#include <linux/capability.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace netro {

/// Takes a permission, as CAP_NET_RAW, from the calling thread until the end of the scope.
class WithoutCapability {
 public:
  explicit WithoutCapability(unsigned capability) {
    syscall(SYS_capget, &header_, before_);
    __user_cap_data_struct less[2] = {before_[0], before_[1]};
    less[0].effective &= ~(1u << capability);
    syscall(SYS_capset, &header_, less);
  }
  ~WithoutCapability() { syscall(SYS_capset, &header_, before_); }
  WithoutCapability(const WithoutCapability&) = delete;
  WithoutCapability& operator=(const WithoutCapability&) = delete;

 private:
  __user_cap_header_struct header_{_LINUX_CAPABILITY_VERSION_3, 0};
  __user_cap_data_struct before_[2] = {};
};

}  // namespace netro
