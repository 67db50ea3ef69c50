// A host that takes connections and datagrams and never says a word. The system accepts for it, so
// it holds thousands of callers without a thread.
#pragma once

#include <string>

#include "testkit/Sockets.h"

namespace netro {

class SilentHost {
 public:
  SilentHost() { testkit::ListenOn(stream_, 4096); }
  ~SilentHost() {
    testkit::CloseSocket(stream_);
    testkit::CloseSocket(datagram_);
  }
  SilentHost(const SilentHost&) = delete;
  SilentHost& operator=(const SilentHost&) = delete;

  int TcpPort() const { return PortOf(stream_); }
  int UdpPort() const { return PortOf(datagram_); }
  std::string Url() const { return "http://127.0.0.1:" + std::to_string(TcpPort()) + '/'; }

 private:
  static int Bound(testkit::Protocol protocol) {
    const int made = testkit::OpenSocket(protocol);
    testkit::BindSocket(made, {});
    return made;
  }
  static int PortOf(int socket) { return testkit::OwnEndpoint(socket).port; }

  const int stream_ = Bound(testkit::Protocol::Tcp);
  const int datagram_ = Bound(testkit::Protocol::Udp);
};

}  // namespace netro
