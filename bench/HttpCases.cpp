// The HTTP cases: small answers, 1 GiB bodies beside libcurl, and bodies of growing size of every
// kind, whose cost per byte must stay the same.

#include "bench/HttpCases.h"

#include <array>
#include <cstdio>
#include <filesystem>
#include <string>
#include <string_view>

#include "bench/Cases.h"
#include "bench/Fetch.h"
#include "bench/LoadServer.h"

namespace netro::bench {
namespace {

constexpr int kSmallRequests = 3000;
constexpr int kManyRequests = 10'000;

void RemoveDownload(const Fetch& fetch) {
  if (!fetch.file.empty()) {
    std::filesystem::remove(fetch.file);
  }
}

/// Adds the case for netro, and for libcurl in front of it as what it is set against.
void AddBesideCurl(const std::string& name, const std::string& unit, double units,
                   const Fetch& fetch) {
#ifdef NETRO_HAVE_CURL
  AddCase({name, "libcurl", unit, units, "", [fetch](Stopwatch& watch) {
             std::string error = CurlFetch(fetch, watch);
             RemoveDownload(fetch);
             return error;
           }});
#endif
  AddCase({name, "netro", unit, units, name + "/libcurl", [fetch](Stopwatch& watch) {
             std::string error = NetroFetch(fetch, watch);
             RemoveDownload(fetch);
             return error;
           }});
}

constexpr std::string_view kSmallAnswer =
    "HTTP/1.1 200 OK\r\nContent-Type: text/plain\r\nContent-Length: 100\r\n\r\n"
    "ssssssssssssssssssssssssssssssssssssssssssssssssss"
    "ssssssssssssssssssssssssssssssssssssssssssssssssss";

/// A request is small enough to come in one piece.
std::string_view AnswerSmall(std::string_view received, Session& /*session*/) {
  return received.ends_with("\r\n\r\n") ? kSmallAnswer : "";
}

using ManyFetcher = decltype(&NetroFetchMany);

void AddMany(const std::string& name, const std::string& library, ManyFetcher fetcher, int inFlight,
             const std::string& against) {
  AddCase({name, library, "requests", kManyRequests, against,
           [fetcher, inFlight](Stopwatch& watch) -> std::string {
             const LoadServer server(AnswerSmall);
             Fetch fetch;
             fetch.url = "http://127.0.0.1:" + std::to_string(server.Port()) + "/small";
             fetch.bodyBytes = 100;
             fetch.repetitions = kManyRequests;
             fetch.inFlight = inFlight;
             return server.Port() == 0 ? "no server" : fetcher(fetch, watch);
           }});
}

void AddManyInFlight() {
  for (const int inFlight : {1, 16, 128, 1000}) {
    const std::string name = "GET, " + std::to_string(inFlight) + " in flight";
#ifdef NETRO_HAVE_CURL
    AddMany(name, "libcurl", CurlFetchMany, inFlight, "");
#endif
    AddMany(name, "netro", NetroFetchMany, inFlight, name + "/libcurl");
  }
}

Fetch BodyFetch(const HttpServers& servers, BodyKind kind, int mebibytes, bool toFile) {
  Fetch fetch;
  fetch.url = servers.BodyUrl(kind, mebibytes);
  fetch.bodyBytes = static_cast<std::uint64_t>(mebibytes) << 20;
  fetch.file = toFile ? servers.Folder() + "/download" : "";
  return fetch;
}

struct Sink {
  const char* name;
  bool toFile;
};
constexpr std::array kSinks = {Sink{"memory", false}, Sink{"file", true}};

struct Kind {
  const char* name;
  BodyKind kind;
};
constexpr std::array kKinds = {Kind{"length", BodyKind::Length}, Kind{"chunked", BodyKind::Chunked},
                               Kind{"until close", BodyKind::UntilClose}};

/// A series of sizes; each is set against the first one.
void AddSeries(const std::string& name, const HttpServers& servers, BodyKind kind, bool toFile,
               bool keepFraming) {
  for (const int mebibytes : {16, 64, 256}) {
    Fetch fetch = BodyFetch(servers, kind, mebibytes, toFile);
    if (keepFraming) {
      fetch.keepFraming = true;
      // Each chunk of 4 KiB has a size line and a line end of 8 bytes; the last one has 5.
      fetch.bodyBytes += fetch.bodyBytes / 4096 * 8 + 5;
    }
    const auto label = [&](int size) { return name + ", " + std::to_string(size) + " MiB"; };
    const std::string against = mebibytes == 16 ? "" : label(16) + "/netro";
    AddCase({label(mebibytes), "netro", "MiB", static_cast<double>(mebibytes), against,
             [fetch](Stopwatch& watch) {
               std::string error = NetroFetch(fetch, watch);
               RemoveDownload(fetch);
               return error;
             }});
  }
}

}  // namespace

void AddHttpCases(const HttpServers& servers) {
#ifndef NETRO_HAVE_CURL
  std::fprintf(stderr, "left out: libcurl\n");
#endif
  Fetch small;
  small.url = servers.SmallUrl();
  small.bodyBytes = 100;
  small.repetitions = kSmallRequests;
  AddBesideCurl("GET of 100 bytes", "requests", kSmallRequests, small);
  AddManyInFlight();

  for (const Kind& kind : kKinds) {
    for (const Sink& sink : kSinks) {
      const std::string name = std::string(kind.name) + " into " + sink.name;
      if (kind.kind != BodyKind::UntilClose) {
        AddBesideCurl(name + ", 1 GiB", "MiB", 1024,
                      BodyFetch(servers, kind.kind, 1024, sink.toFile));
      }
      AddSeries(name, servers, kind.kind, sink.toFile, false);
    }
  }
  AddSeries("chunked, framing kept", servers, BodyKind::Chunked, false, true);
}

}  // namespace netro::bench
