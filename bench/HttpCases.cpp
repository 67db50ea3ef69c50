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
constexpr int kKeptRequests = 100'000;
constexpr int kSecureRequests = 1'000;

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

/// Small answers over one connection for each that is in flight, beside the least it can cost.
void AddKeptAlive() {
  for (const int inFlight : {1, 64}) {
    const std::string name = "GET, kept alive, " + std::to_string(inFlight) + " in flight";
    const auto add = [&](const std::string& library, auto fetcher, const std::string& against) {
      AddCase({name, library, "requests", kKeptRequests, against,
               [fetcher, inFlight](Stopwatch& watch) -> std::string {
                 const LoadServer server(AnswerSmall);
                 Fetch fetch;
                 fetch.url = "http://127.0.0.1:" + std::to_string(server.Port()) + "/small";
                 fetch.bodyBytes = 100;
                 fetch.repetitions = kKeptRequests;
                 fetch.inFlight = inFlight;
                 fetch.keepAlive = true;
                 return server.Port() == 0 ? "no server" : fetcher(fetch, watch);
               }});
    };
    if (inFlight == 1) {
      add("system calls", RawFetch, "");
    }
#ifdef NETRO_HAVE_CURL
    add("libcurl", inFlight == 1 ? CurlFetch : CurlFetchMany, "");
#endif
    add("netro", inFlight == 1 ? NetroFetch : NetroFetchMany, name + "/libcurl");
  }
}

void AddSecure(const HttpServers& servers) {
#ifdef NETRO_HAVE_TLS
  if (servers.SecureUrl().empty()) {
    return;
  }
  Fetch fetch;
  fetch.url = servers.SecureUrl();
  fetch.bodyBytes = 100;
  fetch.trustFile = servers.TrustFile();
  fetch.repetitions = kSecureRequests;
  AddBesideCurl("HTTPS, resumed", "requests", kSecureRequests, fetch);
  fetch.resumes = false;
  AddBesideCurl("HTTPS, new connection", "requests", kSecureRequests, fetch);
  fetch.keepAlive = true;
  fetch.repetitions = kManyRequests;
  AddBesideCurl("HTTPS, kept alive", "requests", kManyRequests, fetch);
  fetch.repetitions = 1;
  fetch.url = servers.SecureUrl("/length/1024");
  fetch.bodyBytes = std::uint64_t{1} << 30;
  AddBesideCurl("HTTPS into memory, 1 GiB", "MiB", 1024, fetch);
  fetch.file = servers.Folder() + "/download";
  AddBesideCurl("HTTPS into file, 1 GiB", "MiB", 1024, fetch);
#else
  (void)servers;
  std::fprintf(stderr, "left out: HTTPS, the component tls was not built\n");
#endif
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
  AddKeptAlive();
  AddSecure(servers);

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
