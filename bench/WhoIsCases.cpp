// Every case takes as many bytes in all, in answers of its size, each over a new connection and
// into a new string. What the class adds is set against a loop that reads until the close: whatever
// large strings cost the system, both pay.

#include "bench/WhoIsCases.h"

#include <netro/WhoIsCls.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <cstdlib>
#include <string>

#include "bench/Cases.h"
#include "bench/Process.h"

namespace netro::bench {
namespace {

constexpr int kMegabytesInAll = 600;
constexpr std::size_t kMegabyte = 1'000'000;
const std::string kBlock = [] {
  std::string block;
  while (block.size() < kMegabyte / 10) {
    block += "Domain Name: bench.test\r\n";
  }
  return block;
}();

/// The query is the size of the answer in MB.
std::string QueryOf(int megabytes) { return std::to_string(megabytes); }

std::string ReceiveQuery(int fd) {
  std::array<char, 64> buffer;
  std::string query;
  while (!query.ends_with("\r\n")) {
    const ssize_t got = recv(fd, buffer.data(), buffer.size(), 0);
    if (got <= 0) {
      return {};
    }
    query.append(buffer.data(), static_cast<std::size_t>(got));
  }
  return query;
}

void Serve(int listening) {
  for (int fd = 0; (fd = accept(listening, nullptr, nullptr)) >= 0; close(fd)) {
    const int blocks = std::atoi(ReceiveQuery(fd).c_str()) * 10;
    for (int i = 0; i < blocks && SendAll(fd, kBlock); ++i) {
    }
  }
}

/// Asks once; returns an error text, empty when the whole answer came.
using WhoIsFunction = std::string (*)(std::uint16_t port, int megabytes);

std::string CheckSize(const std::string& answer, int megabytes) {
  return answer.size() == static_cast<std::size_t>(megabytes) * kMegabyte
             ? ""
             : "an answer of " + std::to_string(answer.size()) + " bytes";
}

std::string SystemCalls(std::uint16_t port, int megabytes) {
  const int fd = ConnectToLoopback(port);
  if (fd < 0 || !SendAll(fd, QueryOf(megabytes) + "\r\n")) {
    return "no connection";
  }
  std::array<char, 65536> buffer;
  std::string answer;
  ssize_t got = 0;
  while ((got = recv(fd, buffer.data(), buffer.size(), 0)) > 0) {
    answer.append(buffer.data(), static_cast<std::size_t>(got));
  }
  close(fd);
  return CheckSize(answer, megabytes);
}

std::string NetroWhoIs(std::uint16_t port, int megabytes) {
  WhoIsCls whois;
  whois.Port(port);
  if (!whois.WhoIs("127.0.0.1", QueryOf(megabytes))) {
    return "error " + std::to_string(whois.LastErr()) + ", " + whois.LastErrMsg();
  }
  return CheckSize(whois.Result(), megabytes);
}

std::string TakeAll(WhoIsFunction function, int megabytes, Stopwatch& watch) {
  std::uint16_t port = 0;
  const int listening = ListenOnLoopback(port);
  if (listening < 0) {
    return "no WHOIS server";
  }
  const ChildProcess server([listening] { Serve(listening); });
  close(listening);
  std::string error;
  watch.Start();
  for (int i = 0; i < kMegabytesInAll / megabytes && error.empty(); ++i) {
    error = function(port, megabytes);
  }
  watch.Stop();
  return error;
}

void Add(int megabytes, const std::string& library, WhoIsFunction function,
         const std::string& againstLibrary) {
  const std::string name = "WHOIS answer of " + std::to_string(megabytes) + " MB";
  AddCase(
      {name, library, "MB", kMegabytesInAll, againstLibrary.empty() ? "" : name + againstLibrary,
       [function, megabytes](Stopwatch& watch) { return TakeAll(function, megabytes, watch); }});
}

}  // namespace

void AddWhoIsCases() {
  for (const int megabytes : {1, 10, 60}) {
    Add(megabytes, "system", SystemCalls, "");
    Add(megabytes, "netro", NetroWhoIs, "/system");
  }
}

}  // namespace netro::bench
