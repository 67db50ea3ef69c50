// Queries one after the other, each over a new socket, to a time server on a free port of loopback.
// What the class adds is set against the least that an exchange takes: one call of the system for
// each step. The query is empty on such a port; the length of the reply decides how it is read.

#include "bench/TimeCases.h"

#include <netro/QueryTimeCLS.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <memory>
#include <string>

#include "bench/Cases.h"
#include "bench/Process.h"

namespace netro::bench {
namespace {

using namespace std::string_literals;

constexpr int kQueries = 20'000;
constexpr std::size_t kSecondsSize = 4;
constexpr std::size_t kSntpSize = 48;

/// The seconds alone (RFC 868), or a message of a primary server (RFC 4330) with four timestamps.
std::string ReplyOf(std::size_t size) {
  const std::string seconds = "\xED\x00\x00\x00"s;  // since 1900: the end of 2025
  const std::string stamp = seconds + std::string(4, '\0');
  return size == kSecondsSize ? seconds
                              : "\x24\x01\x06\xEC"s + std::string(8, '\0') + "GPS\0"s + stamp +
                                    stamp + stamp + stamp;
}

void Serve(int fd, const std::string& reply) {
  std::array<char, 64> query;
  for (;;) {
    sockaddr_in from{};
    socklen_t size = sizeof from;
    auto* address = reinterpret_cast<sockaddr*>(&from);
    if (recvfrom(fd, query.data(), query.size(), 0, address, &size) >= 0) {
      sendto(fd, reply.data(), reply.size(), 0, address, size);
    }
  }
}

bool IsSame(const sockaddr_in& a, const sockaddr_in& b) {
  return a.sin_addr.s_addr == b.sin_addr.s_addr && a.sin_port == b.sin_port;
}

/// Returns the size of the reply; -1 when there was none.
ssize_t ExchangeOnce(const sockaddr_in& server) {
  const int fd = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
  sendto(fd, "", 0, 0, reinterpret_cast<const sockaddr*>(&server), sizeof server);
  pollfd one{fd, POLLIN, 0};
  constexpr int kMilliseconds = 1000;
  poll(&one, 1, kMilliseconds);
  std::array<char, 64> reply;
  sockaddr_in from{};
  socklen_t size = sizeof from;
  const ssize_t got =
      recvfrom(fd, reply.data(), reply.size(), 0, reinterpret_cast<sockaddr*>(&from), &size);
  close(fd);
  return got >= 0 && IsSame(from, server) ? got : -1;
}

std::string SystemCalls(std::uint16_t port, std::size_t replySize, Stopwatch& watch) {
  const sockaddr_in server = LoopbackAddress(port);
  watch.Start();
  for (int i = 0; i < kQueries; ++i) {
    const ssize_t got = ExchangeOnce(server);
    if (got != static_cast<ssize_t>(replySize)) {
      return "a reply of " + std::to_string(got) + " bytes";
    }
  }
  watch.Stop();
  return {};
}

std::string NetroTime(std::uint16_t port, std::size_t replySize, Stopwatch& watch) {
  QueryTimeCLS time;
  time.Server("127.0.0.1");
  time.Port(port);
  const SNTPStratumEnum stratum =
      replySize == kSntpSize ? SNTPStratumEnum::PrimaryReference : SNTPStratumEnum::Unspecified;
  watch.Start();
  for (int i = 0; i < kQueries; ++i) {
    if (!time.QueryTime()) {
      return "error " + std::to_string(time.LastErr()) + ", " + time.LastErrMsg();
    }
    if (time.DateTime() <= 0 || time.SNTPStratum() != stratum) {
      return "a reply that was read wrongly";
    }
  }
  watch.Stop();
  return {};
}

using TimeFunction = std::string (*)(std::uint16_t, std::size_t, Stopwatch&);

void Add(const std::string& library, TimeFunction function, std::size_t replySize,
         const std::string& againstLibrary) {
  const std::string name = "time query, reply of " + std::to_string(replySize) + " bytes";
  AddCase({name, library, "queries", kQueries, againstLibrary.empty() ? "" : name + againstLibrary,
           [function, replySize](Stopwatch& watch) -> std::string {
             std::uint16_t port = 0;
             const int fd = BindOnLoopback(port);
             if (fd < 0) {
               return "no time server";
             }
             const ChildProcess server([&] { Serve(fd, ReplyOf(replySize)); });
             close(fd);
             return function(port, replySize, watch);
           }});
}

}  // namespace

void AddTimeCases() {
  for (const std::size_t replySize : {kSecondsSize, kSntpSize}) {
    Add("system", SystemCalls, replySize, "");
    Add("netro", NetroTime, replySize, "/system");
  }
}

}  // namespace netro::bench
