// Two network namespaces with a cable between them, for the calling thread: "here", 10.77.0.1 and
// fd77::1, where it works from then on, and "there", 10.77.0.2 and fd77::2. What the thread starts
// meanwhile lives where the thread is. Where the system has no namespaces for this user, IsMade is
// false.
#pragma once

#include <fcntl.h>
#include <net/if.h>
#include <poll.h>
#include <sched.h>
#include <stdio.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstring>
#include <fstream>
#include <string>

namespace netro {

class TwoNetworks {
 public:
  static constexpr char kMacHere[] = "02:00:5E:00:00:0A";
  static constexpr char kMacThere[] = "02:00:5E:00:00:0B";

  TwoNetworks() : before_(Open()) {
    there_ = Make();
    if (there_ >= 0) here_ = Make();
    if (here_ < 0) return;
    const std::string there = "/proc/" + std::to_string(getpid()) + "/fd/" + std::to_string(there_);
    // By their numbers the system sees that these are two interfaces, and makes haste.
    made_ = Ip(std::string("link set lo up\nlink add here index 10 address ") + kMacHere +
               " type veth peer name there index 20 address " + kMacThere + " netns " + there +
               "\naddress add 10.77.0.1/24 dev here\n"
               "address add fd77::1/64 dev here\nlink set here up\n") &&
            IpThere(
                "link set lo up\naddress add 10.77.0.2/24 dev there\n"
                "address add fd77::2/64 dev there\nlink set there up\n") &&
            IsRunning("here") && GoThere() && IsRunning("there") && GoHere();
  }
  ~TwoNetworks() {
    Enter(before_);
    for (const int fd : {before_, here_, there_})
      if (fd >= 0) close(fd);
  }
  TwoNetworks(const TwoNetworks&) = delete;
  TwoNetworks& operator=(const TwoNetworks&) = delete;

  bool IsMade() const { return made_; }

  bool GoHere() const { return Enter(here_); }
  bool GoThere() const { return Enter(there_); }

  /// Lets the program ip run these lines in the namespace that the thread is in, or there.
  static bool Ip(const std::string& lines) {
    FILE* ip = popen("ip -batch -", "we");
    if (ip == nullptr) return false;
    fputs(lines.c_str(), ip);
    return pclose(ip) == 0;
  }
  bool IpThere(const std::string& lines) const {
    const bool done = GoThere() && Ip(lines);
    return GoHere() && done;
  }

 private:
  static int Open() { return open("/proc/thread-self/ns/net", O_RDONLY | O_CLOEXEC); }
  static int Make() {
    if (unshare(CLONE_NEWNET) != 0) return -1;
    // Addresses are of use at once, and not when nobody has claimed them for a second.
    std::ofstream("/proc/sys/net/ipv6/conf/default/accept_dad") << 0;
    return Open();
  }
  static bool Enter(int fd) { return setns(fd, CLONE_NEWNET) == 0; }

  // The system notices a moment later that both ends are up; until then the interface drops what it
  // should send.
  static bool IsRunning(const char* interface) {
    ifreq request{};
    std::strncpy(request.ifr_name, interface, IFNAMSIZ - 1);
    const int fd = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    for (int i = 0; i < 5000 && (request.ifr_flags & IFF_RUNNING) == 0; ++i) {
      if (i > 0) poll(nullptr, 0, 1);
      ioctl(fd, SIOCGIFFLAGS, &request);
    }
    close(fd);
    // A change has to wait until the system has done all of its.
    return (request.ifr_flags & IFF_RUNNING) != 0 &&
           Ip(std::string("link set ") + interface + " up\n");
  }

  const int before_;
  int here_ = -1;
  int there_ = -1;
  bool made_ = false;
};

}  // namespace netro
