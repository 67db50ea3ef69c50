// The options of "netro whois".

#include "whois/WhoIsOptions.h"

#include <CLI/CLI.hpp>

#include "terminal/Command.h"

namespace netro::tool {
namespace {

constexpr std::int32_t kLongestTimeout = 1'000'000;

constexpr const char* kExamples = R"(
Examples:
  netro whois example.com --server whois.example.com
  netro whois example.com --server whois.example.com --follow
  NETRO_WHOIS_SERVER=127.0.0.1:4343 netro whois example.com

NAME is sent as it is; what else a server understands, it tells itself. No server is built in. The
answer is printed as it came, on a terminal with control characters made visible.

--follow goes on to the server that an answer refers to ("refer:", "whois:", "Whois Server:",
"Registrar WHOIS Server:", "ReferralServer:"), to five at most and to none twice. Each answer then
stands below a line "% HOST:PORT". A referral counts only when it is a host, or a host and a port.

--json prints one object: query, ok, and the list answers: server, ok, error (number and text),
seconds, received_bytes, the answer ("answer" when it is UTF-8, else "answer_base64"), refers_to
(with --follow, the server asked next, or null) and notes on referrals that were ignored.)";

}  // namespace

void DeclareWhoIsOptions(CLI::App& options, WhoIsOptions& values) {
  options.add_option("NAME", values.name, "What to ask about: a domain, an address, a handle")
      ->required();
  options
      .add_option("-s,--server", values.server,
                  "The server to ask, port 43 if not given; else the environment\n"
                  "variable NETRO_WHOIS_SERVER names it")
      ->type_name("HOST[:PORT]")
      ->envname("NETRO_WHOIS_SERVER")
      ->group("Connection");
  DeclareConnectionOptions(options, values.connection, "Ask through",
                           "Limit of connecting, and of silence while the answer\n"
                           "comes");
  options.add_flag("--follow", values.follow, "Go on to the server that an answer refers to")
      ->group("Question");
  options.add_flag("--json", values.json, "Print one JSON object that holds everything")
      ->group("Output");
  options.footer(kExamples);
}

WhoIsRequest ReadWhoIsRequest(const WhoIsOptions& options) {
  WhoIsRequest request;
  request.name = options.name;
  if (request.name.empty()) throw UsageError("NAME is empty");
  if (request.name.find_first_of("\r\n") != request.name.npos) {
    throw UsageError("NAME must be a single line");
  }
  if (options.server.empty()) {
    throw UsageError("no server to ask; name one with --server or in NETRO_WHOIS_SERVER");
  }
  request.server = ReadWhoIsServer("--server", options.server);
  request.follow = options.follow;
  CheckTimeout(options.connection.timeout, kLongestTimeout);
  request.connection = options.connection;
  request.proxy = ReadSocksProxy(options.connection.proxy, options.connection.proxyType);
  return request;
}

}  // namespace netro::tool
