// One thread on a level-triggered epoll set.

#include "bench/EchoServer.h"

#include <sys/epoll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>

namespace netro::bench {
namespace {

void Watch(int set, int fd) {
  epoll_event event{};
  event.events = EPOLLIN;
  event.data.fd = fd;
  epoll_ctl(set, EPOLL_CTL_ADD, fd, &event);
}

/// A close with linger 0 resets the connection, so that thousands of them leave no port behind in
/// TIME_WAIT.
void AcceptOne(int set, int listening) {
  const int fd = accept(listening, nullptr, nullptr);
  if (fd < 0) {
    return;
  }
  const linger reset{1, 0};
  setsockopt(fd, SOL_SOCKET, SO_LINGER, &reset, sizeof reset);
  Watch(set, fd);
}

void EchoOnce(int fd) {
  std::array<char, 65536> buffer;
  const ssize_t got = recv(fd, buffer.data(), buffer.size(), 0);
  if (got <= 0 || send(fd, buffer.data(), static_cast<std::size_t>(got), MSG_NOSIGNAL) != got) {
    close(fd);
  }
}

void Serve(int listening) {
  const int set = epoll_create1(EPOLL_CLOEXEC);
  Watch(set, listening);
  std::array<epoll_event, 256> events;
  for (;;) {
    const int count = epoll_wait(set, events.data(), static_cast<int>(events.size()), -1);
    for (int i = 0; i < count; ++i) {
      const int fd = events[static_cast<std::size_t>(i)].data.fd;
      fd == listening ? AcceptOne(set, fd) : EchoOnce(fd);
    }
  }
}

}  // namespace

EchoServer::EchoServer() {
  const int listening = ListenOnLoopback(port_);
  if (listening < 0) {
    return;
  }
  process_ = std::make_unique<ChildProcess>([listening] { Serve(listening); });
  close(listening);
}

}  // namespace netro::bench
