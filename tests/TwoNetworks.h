// Two network namespaces with a cable between them, for the calling thread: "here", 10.77.0.1 and
// fd77::1, where it works from then on, and "there", 10.77.0.2 and fd77::2. What the thread starts
// meanwhile lives where the thread is. Where the system has no namespaces for this user, IsMade is
// false.
#pragma once

#include <net/if.h>
#include <poll.h>
#include <sys/ioctl.h>

#include <cstring>

#include "EchoNetworks.h"

namespace netro {

class TwoNetworks {
 public:
  static constexpr char kMacHere[] = "02:00:5E:00:00:0A";
  static constexpr char kMacThere[] = "02:00:5E:00:00:0B";

  // By their numbers the system sees that these are two interfaces, and makes haste.
  TwoNetworks()
      : made_(there_.IsMade() && here_.IsMade() &&
              Ip(std::string("link add here index 10 address ") + kMacHere +
                 " type veth peer name there index 20 address " + kMacThere + " netns " +
                 there_.Path() + "\naddress add 10.77.0.1/24 dev here\n" +
                 "address add fd77::1/64 dev here\nlink set here up\n") &&
              IpThere("address add 10.77.0.2/24 dev there\naddress add fd77::2/64 dev there\n"
                      "link set there up\n") &&
              IsRunning("here") && GoThere() && IsRunning("there") && GoHere()) {}

  bool IsMade() const { return made_; }
  bool GoHere() const { return here_.Enter(); }
  bool GoThere() const { return there_.Enter(); }

  /// Lets the program ip run these lines in the namespace that the thread is in, or there.
  static bool Ip(const std::string& lines) { return OwnNetwork::Ip(lines); }
  bool IpThere(const std::string& lines) const {
    const bool done = GoThere() && Ip(lines);
    return GoHere() && done;
  }

 private:
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

  // The thread comes back to where it was when `here_`, made last, goes first.
  const OwnNetwork there_;
  const OwnNetwork here_;
  const bool made_;
};

}  // namespace netro
