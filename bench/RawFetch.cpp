// What any client has to do for an answer of a few bytes, without anything around it.

#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <charconv>
#include <string_view>

#include "bench/Fetch.h"
#include "bench/Process.h"

namespace netro::bench {
namespace {

bool FetchOnce(int fd, std::string_view request, std::uint64_t bodyBytes) {
  if (!SendAll(fd, request)) {
    return false;
  }
  std::array<char, 4096> buffer;
  std::size_t filled = 0;
  for (;;) {
    const ssize_t got = recv(fd, buffer.data() + filled, buffer.size() - filled, 0);
    if (got <= 0) {
      return false;
    }
    filled += static_cast<std::size_t>(got);
    const std::size_t end = std::string_view(buffer.data(), filled).find("\r\n\r\n");
    if (end != std::string_view::npos && filled >= end + 4 + bodyBytes) {
      return true;
    }
  }
}

}  // namespace

std::string RawFetch(const Fetch& fetch, Stopwatch& watch) {
  const std::string_view url = fetch.url;
  const std::size_t colon = url.rfind(':') + 1;
  const std::size_t slash = url.find('/', colon);
  std::uint16_t port = 0;
  std::from_chars(url.data() + colon, url.data() + slash, port);
  const std::string request =
      "GET " + fetch.url.substr(slash) + " HTTP/1.1\r\nHost: 127.0.0.1\r\n\r\n";
  watch.Start();
  const int fd = ConnectToLoopback(port);
  bool good = fd >= 0;
  for (int i = 0; good && i < fetch.repetitions; ++i) {
    good = FetchOnce(fd, request, fetch.bodyBytes);
  }
  watch.Stop();
  close(fd);
  return good ? "" : "no answer";
}

}  // namespace netro::bench
