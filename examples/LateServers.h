// An HTTP and a DNS server on free ports of 127.0.0.1 that let their clients wait: each request is
// answered a second after it came, however many there are. They run on a thread of their own and
// share nothing with the library.
#pragma once

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <cstdlib>
#include <deque>
#include <functional>
#include <stdexcept>
#include <string>
#include <thread>
#include <utility>

class LateServers {
 public:
  using Clock = std::chrono::steady_clock;
  static constexpr std::chrono::milliseconds kDelay{1000};

  LateServers() {
    if (pipe(stop_) != 0 || listen(pages_, 64) != 0) throw std::runtime_error("no loopback");
    thread_ = std::thread([this] { Serve(); });
  }
  ~LateServers() {
    close(stop_[1]);
    thread_.join();
    for (const int descriptor : {stop_[0], pages_, names_}) close(descriptor);
  }
  LateServers(const LateServers&) = delete;
  LateServers& operator=(const LateServers&) = delete;

  /// The page of a number; its text is Page(number).
  std::string URL(int number) const {
    return "http://127.0.0.1:" + std::to_string(Port(pages_)) + "/" + std::to_string(number);
  }
  static std::string Page(int number) { return "page " + std::to_string(number); }

  /// What to set as DNSURL, a name that is known there, and its address; numbers up to 255.
  std::string DNSURL() const { return "127.0.0.1:" + std::to_string(Port(names_)); }
  static std::string Name(int number) { return "host-" + std::to_string(number) + ".example"; }
  static std::string Address(int number) { return "10.0.0." + std::to_string(number); }

 private:
  static int Bound(int type) {
    const int descriptor = socket(AF_INET, type, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    if (bind(descriptor, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0) {
      throw std::runtime_error("no loopback");
    }
    return descriptor;
  }

  static int Port(int descriptor) {
    sockaddr_in address{};
    socklen_t size = sizeof address;
    getsockname(descriptor, reinterpret_cast<sockaddr*>(&address), &size);
    return ntohs(address.sin_port);
  }

  void Serve() {
    pollfd watched[] = {{stop_[0], POLLIN, 0}, {pages_, POLLIN, 0}, {names_, POLLIN, 0}};
    while (poll(watched, 3, MillisecondsToNext()) >= 0 && watched[0].revents == 0) {
      if (watched[1].revents != 0) {
        Later([client = accept(pages_, nullptr, nullptr)] { SendPage(client); });
      }
      if (watched[2].revents != 0) TakeQuery();
      while (!later_.empty() && later_.front().first <= Clock::now()) {
        later_.front().second();
        later_.pop_front();
      }
    }
  }

  void Later(std::function<void()> answer) {
    later_.emplace_back(Clock::now() + kDelay, std::move(answer));
  }

  int MillisecondsToNext() const {
    if (later_.empty()) return -1;
    const auto left =
        std::chrono::ceil<std::chrono::milliseconds>(later_.front().first - Clock::now());
    return static_cast<int>(std::max<std::int64_t>(0, left.count()));
  }

  // By now the request is there: "GET /NUMBER HTTP/1.1" and so on.
  static void SendPage(int client) {
    char request[2048] = {};
    const ssize_t size = recv(client, request, sizeof request, 0);
    const std::string page = size > 5 ? Page(std::atoi(request + 5)) : "";
    const std::string answer = "HTTP/1.1 200 OK\r\nContent-Type: text/plain\r\nContent-Length: " +
                               std::to_string(page.size()) + "\r\n\r\n" + page;
    (void)!send(client, answer.data(), answer.size(), MSG_NOSIGNAL);
    close(client);
  }

  // Header, and the question for "host-NUMBER.example", which begins with the length of a label.
  void TakeQuery() {
    char query[512] = {};
    sockaddr_in client{};
    socklen_t size = sizeof client;
    const ssize_t length =
        recvfrom(names_, query, sizeof query, 0, reinterpret_cast<sockaddr*>(&client), &size);
    if (length <= 18) return;
    // Without the OPT record that may follow the question.
    std::string reply(query, static_cast<std::size_t>(length));
    reply.resize(reply.find('\0', 12) + 5);
    reply[11] = 0;
    const int number = std::atoi(query + 18);
    reply[2] = '\x81';  // a reply, recursion desired
    reply[3] = '\x80';  // and available; no error
    reply[7] = 1;       // with one answer: the name of the question, A, IN, 60 seconds, 4 bytes
    reply.append("\xC0\x0C\0\1\0\1\0\0\0\x3C\0\4\x0A\0\0", 15) += static_cast<char>(number);
    Later([this, client, reply] {
      (void)!sendto(names_, reply.data(), reply.size(), 0,
                    reinterpret_cast<const sockaddr*>(&client), sizeof client);
    });
  }

  const int pages_ = Bound(SOCK_STREAM);
  const int names_ = Bound(SOCK_DGRAM);
  int stop_[2] = {-1, -1};
  std::deque<std::pair<Clock::time_point, std::function<void()>>> later_;
  std::thread thread_;
};
