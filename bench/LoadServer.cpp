// The set is level-triggered. Answers are small enough to be sent at once.

#include "bench/LoadServer.h"

#include <fcntl.h>
#include <sys/epoll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <vector>

namespace netro::bench {
namespace {

constexpr std::size_t kBlock = 256 * 1024;

class Server {
 public:
  Server(int listening, const LoadServer::Answer& answer, std::string_view greeting)
      : listening_(listening), answer_(answer), greeting_(greeting) {}

  [[noreturn]] void Run() {
    const linger reset{1, 0};  // what is accepted has it, too
    setsockopt(listening_, SOL_SOCKET, SO_LINGER, &reset, sizeof reset);
    fcntl(listening_, F_SETFL, O_NONBLOCK);
    Watch(listening_);
    std::array<epoll_event, 256> events;
    for (;;) {
      const int count = epoll_wait(set_, events.data(), static_cast<int>(events.size()), -1);
      for (int i = 0; i < count; ++i) {
        const int fd = events[static_cast<std::size_t>(i)].data.fd;
        fd == listening_ ? AcceptAll() : Serve(fd);
      }
    }
  }

 private:
  void Watch(int fd) {
    epoll_event event{};
    event.events = EPOLLIN;
    event.data.fd = fd;
    epoll_ctl(set_, EPOLL_CTL_ADD, fd, &event);
  }

  void AcceptAll() {
    for (int fd = 0; (fd = accept(listening_, nullptr, nullptr)) >= 0; Watch(fd)) {
      if (sessions_.size() <= static_cast<std::size_t>(fd)) {
        sessions_.resize(static_cast<std::size_t>(fd) + 1);
      }
      sessions_[static_cast<std::size_t>(fd)] = {};
      SendAll(fd, greeting_);
    }
  }

  void Serve(int fd) {
    const ssize_t got = recv(fd, block_.data(), block_.size(), 0);
    const std::string_view received(block_.data(), got > 0 ? static_cast<std::size_t>(got) : 0);
    if (got <= 0 || !SendAll(fd, answer_(received, sessions_[static_cast<std::size_t>(fd)]))) {
      close(fd);
    }
  }

  const int set_ = epoll_create1(EPOLL_CLOEXEC);
  const int listening_;
  const LoadServer::Answer& answer_;
  const std::string greeting_;
  std::vector<Session> sessions_;  // by descriptor
  std::vector<char> block_ = std::vector<char>(kBlock);
};

}  // namespace

LoadServer::LoadServer(const Answer& answer, std::string_view greeting) {
  const int listening = ListenOnLoopback(port_);
  if (listening < 0) {
    port_ = 0;
    return;
  }
  process_ = std::make_unique<ChildProcess>([&] { Server(listening, answer, greeting).Run(); });
  close(listening);
}

}  // namespace netro::bench
