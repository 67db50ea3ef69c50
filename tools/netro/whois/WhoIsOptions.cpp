// The options of "netro whois".

#include "whois/WhoIsOptions.h"

#include <netro/WhoIsCls.h>

#include <CLI/CLI.hpp>
#include <cstdlib>
#include <fstream>
#include <iterator>

#include "terminal/Command.h"
#include "terminal/HostAddress.h"
#include "terminal/HostAndPort.h"
#include "terminal/OptionValues.h"
#include "terminal/Terminal.h"

namespace netro::tool {
namespace {

constexpr std::int32_t kLongestTimeout = 1'000'000;
constexpr const char* kSystemTable = "/etc/whois.conf";

constexpr const char* kExamples = R"(
Examples:
  netro whois example.com --server whois.example.com
  netro whois example.com --server whois.example.com --follow
  netro whois example.com --servers my-servers.conf
  NETRO_WHOIS_SERVER=127.0.0.1:4343 netro whois example.com

NAME is sent as it is; what else a server understands, it tells itself. The answer is printed as it
came, on a terminal with control characters made visible.

No server is built in. Without one the server is looked for in a table: the file of --servers, else
the one that NETRO_WHOIS_SERVERS names, else /etc/whois.conf. It has a line "WHAT SERVER [HOW]" for
each server: WHAT is a domain (.example), a network (192.0.2.0/24), AS numbers (AS64496-AS64511),
* for all (where referrals start) or - for nothing; HOW is the question that the server wants, with
NAME in it, such as "n + NAME". The narrowest line counts, and referrals are followed.

--follow goes on to the server that an answer refers to ("refer:", "whois:", "Whois Server:",
"Registrar WHOIS Server:", "ReferralServer:"), to five at most and to none twice. Each answer then
stands below a line "% HOST:PORT". A referral counts only when it is a host, or a host and a port,
and leads to a public address.

--json prints one object: query, ok, and the list answers: server, query, ok, error (number and
text), seconds, received_bytes, the answer ("answer" when it is UTF-8, else "answer_base64"),
refers_to (with --follow, the server asked next, or null) and notes on referrals that were ignored.)";

bool ReadTable(const std::string& path, std::string& text) {
  std::ifstream file(path, std::ios::binary);
  if (!file) return false;
  try {
    text.assign(std::istreambuf_iterator<char>(file), {});
  } catch (const std::ios_base::failure&) {  // a folder, for one
    return false;
  }
  return !file.bad();
}

/// The lines of the system's file that only other programs understand do no harm.
std::string FindTable(const WhoIsOptions& options) {
  const char* environment = std::getenv("NETRO_WHOIS_SERVERS");
  std::string path = options.table;
  if (path.empty() && environment != nullptr) path = environment;
  std::string text;
  if (path.empty()) {
    ReadTable(kSystemTable, text);
    return text;
  }
  const std::string name = options.table.empty() ? "NETRO_WHOIS_SERVERS" : "--servers";
  if (!ReadTable(path, text)) throw UsageError(name + ": cannot read \"" + path + "\"");
  const auto problems = WhoIsCls().ServerTable(text);
  if (!problems.empty()) throw UsageError(name + ": " + path + ", " + problems.front());
  return text;
}

void ReadServer(const std::string& text, WhoIsRequest& request) {
  ReadHostAndPort("--server", text, request.host, request.port);
  if (const auto address = UsualIPv6(request.host)) {
    request.host = BracketedHost(*address);
  } else if (!IsHostName(request.host)) {
    throw UsageError("--server: \"" + request.host + "\" is no host name");
  }
}

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
  options
      .add_option("--servers", values.table,
                  "File with a table of servers, for when none is named;\n"
                  "see below")
      ->type_name("FILE")
      ->group("Connection");
  DeclareConnectionOptions(options, values.connection, "Ask through",
                           "Limit of connecting, and of silence while the answer\n"
                           "comes");
  options.add_option("--total", values.total, "Limit of the whole chain; 120 if not given")
      ->type_name("SECONDS")
      ->group("Connection");
  auto* follow =
      options.add_flag("--follow", values.follow, "Go on to the server that an answer refers to")
          ->group("Question");
  options.add_flag("--no-follow", values.noFollow, "Do not, also when the server is the table's")
      ->excludes(follow)
      ->group("Question");
  options
      .add_flag("--follow-private", values.followPrivate,
                "Referrals may lead to private, loopback and link-local\n"
                "addresses too")
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
  request.table = FindTable(options);
  if (!options.server.empty()) {
    ReadServer(options.server, request);
  } else if (request.table.empty()) {
    throw UsageError(
        "no server to ask; name one with --server or in NETRO_WHOIS_SERVER, or a table of them "
        "with "
        "--servers");
  }
  request.follow = options.follow || (options.server.empty() && !options.noFollow);
  request.followPrivate = options.followPrivate;
  request.total = options.total;
  CheckLimit("--total", request.total, kLongestTimeout, NoLimit::Zero);
  CheckLimit("--timeout", options.connection.timeout, kLongestTimeout);
  request.connection = options.connection;
  request.proxy = ReadSocksProxy(options.connection.proxy);
  return request;
}

}  // namespace netro::tool
