// One connection is set against Asio's. With many connections each library is set against itself
// with few: that ratio shows what the number of sockets costs.

#include "bench/EchoCases.h"

#include <cstdio>
#include <string>
#include <string_view>

#include "bench/Cases.h"
#include "bench/Echo.h"
#include "bench/LoadServer.h"

namespace netro::bench {
namespace {

std::string_view SendBack(std::string_view received, Session& /*session*/) { return received; }

using EchoFunction = std::string (*)(const Echo&, std::uint16_t, Stopwatch&);

void Add(const std::string& name, const std::string& library, EchoFunction function,
         const Echo& echo, const std::string& against) {
  AddCase({name, library, "round trips", static_cast<double>(echo.roundTrips), against,
           [function, echo](Stopwatch& watch) -> std::string {
             const LoadServer server(SendBack);
             return server.Port() == 0 ? "no echo server" : function(echo, server.Port(), watch);
           }});
}

/// `againstName` is the same library's case to compare with; empty: compare netro with Asio.
void AddForBoth(const std::string& name, const Echo& echo, const std::string& againstName) {
  const auto against = [&](const std::string& library) {
    return againstName.empty() ? "" : againstName + "/" + library;
  };
#ifdef NETRO_HAVE_ASIO
  Add(name, "Asio", AsioEcho, echo, against("Asio"));
#endif
  Add(name, "netro", NetroEcho, echo, againstName.empty() ? name + "/Asio" : against("netro"));
}

}  // namespace

void AddEchoCases(std::uint64_t descriptors) {
#ifndef NETRO_HAVE_ASIO
  std::fprintf(stderr, "left out: Asio\n");
#endif
  AddForBoth("echo, 1 connection", {0, 1, 20'000}, "");
  AddForBoth("echo, 1 busy, 10 idle", {10, 1, 20'000}, "");
  AddForBoth("echo, 10 busy, 10 idle", {10, 10, 50'000}, "");
  if (descriptors < 11'100) {
    std::fprintf(stderr, "left out: 10000 idle connections (only %llu descriptors)\n",
                 static_cast<unsigned long long>(descriptors));
    return;
  }
  AddForBoth("echo, 1 busy, 10000 idle", {10'000, 1, 20'000}, "echo, 1 busy, 10 idle");
  AddForBoth("echo, 10 busy, 10000 idle", {10'000, 10, 50'000}, "echo, 10 busy, 10 idle");
  AddForBoth("echo, 1000 busy, 10000 idle", {10'000, 1'000, 50'000}, "echo, 10 busy, 10 idle");
}

}  // namespace netro::bench
