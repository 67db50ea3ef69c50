// Network namespaces for the tests of ping and trace route, made for the calling thread, which
// works in the first one from then on; what it starts meanwhile lives there too. Where the system
// has no namespaces for this user, IsMade is false.
#pragma once

#include <fcntl.h>
#include <netro/ICMPCls.h>
#include <sched.h>
#include <stdio.h>
#include <sys/socket.h>
#include <unistd.h>

#include <fstream>
#include <string>
#include <vector>

namespace netro {

/// A namespace with nothing but loopback in it.
class OwnNetwork {
 public:
  OwnNetwork() : before_(Current()), fd_(unshare(CLONE_NEWNET) == 0 ? Current() : -1) {
    made_ = fd_ >= 0 && Ip("link set lo up\n");
  }
  ~OwnNetwork() {
    setns(before_, CLONE_NEWNET);
    for (const int fd : {before_, fd_})
      if (fd >= 0) close(fd);
  }
  OwnNetwork(const OwnNetwork&) = delete;
  OwnNetwork& operator=(const OwnNetwork&) = delete;

  bool IsMade() const { return made_; }
  bool Enter() const { return setns(fd_, CLONE_NEWNET) == 0; }
  std::string Path() const {
    return "/proc/" + std::to_string(getpid()) + "/fd/" + std::to_string(fd_);
  }

  /// Lets the program ip run these lines where the thread is.
  static bool Ip(const std::string& lines) { return Feed("ip -batch -", lines); }
  /// Runs a command with this input; true when its status is 0.
  static bool Feed(const std::string& command, const std::string& input) {
    FILE* pipe = popen(command.c_str(), "we");
    if (pipe == nullptr) return false;
    fputs(input.c_str(), pipe);
    return pclose(pipe) == 0;
  }
  /// What a command writes.
  static std::string Read(const std::string& command) {
    std::string text;
    FILE* pipe = popen((command + " 2>/dev/null").c_str(), "re");
    char block[4096];
    for (std::size_t n; pipe != nullptr && (n = fread(block, 1, sizeof block, pipe)) > 0;)
      text.append(block, n);
    if (pipe != nullptr) pclose(pipe);
    return text;
  }
  /// Sets a value below /proc/sys/net/ipv4 where the thread is.
  static bool Set(const std::string& name, const std::string& value) {
    std::ofstream file("/proc/sys/net/ipv4/" + name);
    return static_cast<bool>(file << value << std::flush);
  }
  /// Lets programs of this user have datagram ICMP sockets; a new namespace does not.
  static bool AllowEcho() { return Set("ping_group_range", "0 0"); }

 private:
  static int Current() { return open("/proc/thread-self/ns/net", O_RDONLY | O_CLOEXEC); }

  const int before_;
  const int fd_;
  bool made_ = false;
};

/// Four hosts in a row, A - R1 - R2 - B, where the thread works on A:
///
///   A 10.1.0.1 - 10.1.0.2 R1 10.2.0.1 - 10.2.0.2 R2 10.3.0.1 - 10.3.0.2 B
///
/// R2 has routes of every kind that leads nowhere.
class FourHosts {
 public:
  FourHosts() {
    made_ = a_.IsMade() && r1_.IsMade() && r2_.IsMade() && b_.IsMade() && Connect();
    a_.Enter();
  }

  bool IsMade() const { return made_; }

  /// The system connects the cables a little later than it says; true once B answers.
  static bool AwaitWay() {
    ICMPCls icmp;
    icmp.PingTimeout(100);
    for (int tries = 0; tries < 50; ++tries) {
      if (icmp.PingHost("10.3.0.2") >= 0) return true;
    }
    return false;
  }

  const OwnNetwork& A() const { return a_; }
  const OwnNetwork& R1() const { return r1_; }
  const OwnNetwork& R2() const { return r2_; }
  const OwnNetwork& B() const { return b_; }

  /// Lets the program ip run these lines on one of the hosts.
  bool IpAt(const OwnNetwork& host, const std::string& lines) const {
    const bool done = host.Enter() && OwnNetwork::Ip(lines);
    return a_.Enter() && done;
  }

 private:
  bool Connect() {
    for (const OwnNetwork* router : {&r1_, &r2_, &b_}) {
      router->Enter();
      OwnNetwork::Set("ip_forward", "1");
      OwnNetwork::Set("icmp_ratelimit", "0");
    }
    return IpAt(a_, "link add toR1 type veth peer name toA netns " + r1_.Path() +
                        "\naddress add 10.1.0.1/24 dev toR1\nlink set toR1 up\n"
                        "route add default via 10.1.0.2\n") &&
           IpAt(r1_,
                "link add toR2 type veth peer name toR1 netns " + r2_.Path() +
                    "\naddress add 10.1.0.2/24 dev toA\nlink set toA up\n"
                    "address add 10.2.0.1/24 dev toR2\nlink set toR2 up\n"
                    "route add 10.3.0.0/24 via 10.2.0.2\nroute add 10.9.0.0/16 via 10.2.0.2\n") &&
           IpAt(r2_, "link add toB type veth peer name toR2 netns " + b_.Path() +
                         "\naddress add 10.2.0.2/24 dev toR1\nlink set toR1 up\n"
                         "address add 10.3.0.1/24 dev toB\nlink set toB up\n"
                         "route add 10.1.0.0/24 via 10.2.0.1\nroute add unreachable 10.9.1.0/24\n"
                         "route add prohibit 10.9.2.0/24\nroute add blackhole 10.9.3.0/24\n") &&
           IpAt(b_,
                "address add 10.3.0.2/24 dev toR2\nlink set toR2 up\n"
                "route add default via 10.3.0.1\n");
  }

  // The thread comes back to where it was when `b_`, made last, goes first and `a_` last.
  OwnNetwork a_, r1_, r2_, b_;
  bool made_ = false;
};

}  // namespace netro
