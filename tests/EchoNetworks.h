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
    // Addresses are of use at once, and not when nobody has claimed them for a second.
    Set("conf/default/accept_dad", "0", "ipv6");
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
  static bool Ip(const std::string& lines) {
    FILE* ip = popen("ip -batch -", "we");
    if (ip == nullptr) return false;
    fputs(lines.c_str(), ip);
    return pclose(ip) == 0;
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
  /// Sets a value below /proc/sys/net/ipv4 or ipv6 where the thread is.
  static bool Set(const std::string& name, const std::string& value,
                  const std::string& family = "ipv4") {
    std::ofstream file("/proc/sys/net/" + family + "/" + name);
    return static_cast<bool>(file << value << std::flush);
  }
  /// Lets programs of this user have datagram ICMP sockets, for IPv6 too; a new namespace does not.
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
/// and the same with fd01::1 to fd03::2. R2 has routes of every kind that leads nowhere.
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
    int answered = 0;
    for (int tries = 0; tries < 100 && answered < 2; ++tries)
      answered += icmp.PingHost(answered == 0 ? "10.3.0.2" : "fd03::2") >= 0;
    return answered == 2;
  }

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
      OwnNetwork::Set("conf/all/forwarding", "1", "ipv6");
      OwnNetwork::Set("icmp/ratelimit", "0", "ipv6");
    }
    // By their numbers the system sees that the ends are two interfaces, and makes haste.
    return IpAt(a_, "link add toR1 index 10 type veth peer name toA index 20 netns " + r1_.Path() +
                        "\naddress add 10.1.0.1/24 dev toR1\naddress add fd01::1/64 dev toR1\n"
                        "link set toR1 up\nroute add default via 10.1.0.2\n"
                        "route add default via fd01::2\n") &&
           IpAt(r1_, "link add toR2 index 11 type veth peer name toR1 index 21 netns " +
                         r2_.Path() +
                         "\naddress add 10.1.0.2/24 dev toA\naddress add fd01::2/64 dev toA\n"
                         "address add 10.2.0.1/24 dev toR2\naddress add fd02::1/64 dev toR2\n"
                         "link set toA up\nlink set toR2 up\n"
                         "route add 10.3.0.0/24 via 10.2.0.2\nroute add 10.9.0.0/16 via 10.2.0.2\n"
                         "route add fd03::/64 via fd02::2\nroute add fd09::/16 via fd02::2\n") &&
           IpAt(r2_, "link add toB index 12 type veth peer name toR2 index 22 netns " + b_.Path() +
                         "\naddress add 10.2.0.2/24 dev toR1\naddress add fd02::2/64 dev toR1\n"
                         "address add 10.3.0.1/24 dev toB\naddress add fd03::1/64 dev toB\n"
                         "link set toR1 up\nlink set toB up\n"
                         "route add 10.1.0.0/24 via 10.2.0.1\nroute add unreachable 10.9.1.0/24\n"
                         "route add prohibit 10.9.2.0/24\nroute add blackhole 10.9.3.0/24\n"
                         "route add fd01::/64 via fd02::1\nroute add unreachable fd09:0:1::/48\n"
                         "route add prohibit fd09:0:2::/48\nroute add blackhole fd09:0:3::/48\n") &&
           IpAt(b_,
                "address add 10.3.0.2/24 dev toR2\naddress add fd03::2/64 dev toR2\n"
                "link set toR2 up\nroute add default via 10.3.0.1\n"
                "route add default via fd03::1\n");
  }

  // The thread comes back to where it was when `b_`, made last, goes first and `a_` last.
  OwnNetwork a_, r1_, r2_, b_;
  bool made_ = false;
};

}  // namespace netro
