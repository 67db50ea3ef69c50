// A host that takes connections and datagrams and never says a word. The system accepts for it, so
// it holds thousands of callers without a thread.
#pragma once

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <string>

namespace netro {

class SilentHost {
 public:
  SilentHost() { listen(stream_, 4096); }
  ~SilentHost() {
    close(stream_);
    close(datagram_);
  }
  SilentHost(const SilentHost&) = delete;
  SilentHost& operator=(const SilentHost&) = delete;

  int TcpPort() const { return PortOf(stream_); }
  int UdpPort() const { return PortOf(datagram_); }
  std::string Url() const { return "http://127.0.0.1:" + std::to_string(TcpPort()) + '/'; }

 private:
  static int Bound(int type) {
    const int fd = socket(AF_INET, type | SOCK_CLOEXEC, 0);
    sockaddr_in name{};
    name.sin_family = AF_INET;
    name.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    bind(fd, reinterpret_cast<sockaddr*>(&name), sizeof name);
    return fd;
  }
  static int PortOf(int fd) {
    sockaddr_in name{};
    socklen_t size = sizeof name;
    getsockname(fd, reinterpret_cast<sockaddr*>(&name), &size);
    return ntohs(name.sin_port);
  }

  const int stream_ = Bound(SOCK_STREAM);
  const int datagram_ = Bound(SOCK_DGRAM);
};

}  // namespace netro
