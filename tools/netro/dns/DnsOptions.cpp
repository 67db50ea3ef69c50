// The options of "netro dns".

#include "dns/DnsOptions.h"

#include <netro/RecordText.h>

#include <CLI/CLI.hpp>

#include "dns/QuestionName.h"
#include "terminal/Batch.h"
#include "terminal/Command.h"
#include "terminal/ConnectionOptions.h"
#include "terminal/HostAndPort.h"
#include "terminal/SecondsText.h"

namespace netro::tool {
namespace {

constexpr double kShortestTimeout = 0.01;
constexpr std::int32_t kDefaultTimeout = 30;
constexpr std::int32_t kZoneTimeout = 3600;
constexpr std::int32_t kLongestTimeout = 1'000'000;

constexpr const char* kExamples = R"(
Examples:
  netro dns example.com
  netro dns @127.0.0.1:5353 example.com A AAAA MX
  netro dns example.com example.org www.example.net AAAA
  netro dns --short -x 192.0.2.1 2001:db8::1
  netro dns --all example.com
  netro dns --zone example.com --server ns.example.com
  netro dns --trace www.example.com AAAA

TYPE is a name (A, AAAA, MX, TXT, SRV, CAA, HTTPS ...; ANY or ALL for all types) or a number (TYPE65
or 65); all names are asked for each TYPE. To be told from a type, each name after the first needs a
dot, if only at its end. @HOST[:PORT] says the same as --server. In a name, "\." is a dot inside of a label, and "\200" the byte of this decimal
number. Records are printed as in a zone file, with everything else in comments, in the order of the
names; with --short nothing but the data of the answers. A reply that was truncated is asked for again over TCP. Without --server the servers of this
system are asked, each when the ones before it do not answer.

--trace asks without recursion, beginning with the 13 servers of the root zone, or with the one of
--server, whose port is then that of all. It shows each zone's name servers, who told of them and how
long that took, and ends at the answer, at "no such name", or where no server of a zone knows on. A
referral counts only when it leads down to a zone that NAME is in, and an address for a server only
from who serves its name's zone; servers without one are looked up from the root. No more than 10
addresses of a zone are asked, and 100 servers in all. Who is at a public address cannot send the
trace to one that is not (private, loopback, link-local).

--json prints one object: question, server, silent_servers, transport, truncated_over_udp, ok, status
(the server's response code), flags, error (number and text), edns (the OPT record of the reply: its
version, flags, udp_size and options, or null), seconds, sent_bytes, received_bytes, and the lists
answer, authority and additional of records: name, ttl, class, type, type_number, data as in a zone
file, and the numbers and names in it as "fields". For several names or types it prints a list of such
objects, in their order. With --trace it has: question, ok, outcome (answer, no_such_record,
no_such_name, dead_end, stopped), error, seconds, steps, notes and answer; each of the steps has
question, zone, depth (1 and more when a server's address is looked up), server_name, server,
transport, seconds, status, flags, result (answer, no_such_record, no_such_name, referral, useless),
reason, refers_to (a zone or null) and records.)";

void DeclareQuestion(CLI::App& options, DnsOptions& values) {
  constexpr const char* kGroup = "Question";
  options
      .add_option("NAME", values.words,
                  "The names to ask for, and beside them the TYPEs of the records, A\n"
                  "if not given, and @SERVER")
      ->required();
  options.add_flag("--all", values.all, "Ask for the records of all types")->group(kGroup);
  options.add_flag("-x,--reverse", values.reverse, "Ask for the name of the address NAME")
      ->group(kGroup);
  options.add_flag("--zone", values.zone, "Transfer the whole zone NAME, over TCP")->group(kGroup);
  options
      .add_flag("--no-recursion", values.noRecursion,
                "Ask for what the server knows by itself only")
      ->group(kGroup);
  options
      .add_flag("--trace", values.trace,
                "Ask the servers of the root zone, those that they refer to, and\n"
                "so on, down to those that know NAME")
      ->group(kGroup);
  options
      .add_option("--edns", values.edns,
                  "Tell the server with EDNS(0) that a reply over UDP may have so\n"
                  "many bytes, 512 to 65535")
      ->type_name("SIZE")
      ->check(CLI::Range(512, 65535))
      ->group(kGroup);
  options
      .add_flag("--dnssec", values.dnssec,
                "Ask for DNSSEC records too, with EDNS(0); they are not verified")
      ->group(kGroup);
}

void DeclareServer(CLI::App& options, DnsOptions& values) {
  constexpr const char* kGroup = "Connection";
  options.add_option("-s,--server", values.server, "The server; port 53 if not given")
      ->type_name("HOST[:PORT]")
      ->group(kGroup);
  options.add_flag("--tcp", values.tcp, "Ask over TCP")->group(kGroup);
  DeclareProxyOptions(options, values.proxy, "Ask over TCP through", "--proxy");
  DeclareParallel(options, values.parallel, "The most names to ask for at once");
  options
      .add_option("-t,--timeout", values.timeout,
                  "Limit of the whole query; 30 if not given, and 3600 for a zone")
      ->type_name("SECONDS")
      ->group(kGroup);
}

struct Words {
  std::vector<std::string> names;
  std::vector<std::string> types;
  std::string server;
};

Words ReadWords(const DnsOptions& options) {
  Words words;
  for (const std::string& word : options.words) {
    if (word.empty()) throw UsageError("NAME is empty; the root is \".\"");
    if (word.front() == '@') {
      if (!words.server.empty()) throw UsageError("\"" + word + "\": there is a server already");
      words.server = word.substr(1);
      if (words.server.empty()) throw UsageError("\"@\" names no server");
    } else if (words.names.empty() || word.find_first_of(".:") != word.npos) {
      words.names.push_back(word);
    } else {
      words.types.push_back(word);
    }
  }
  if (words.names.empty()) throw UsageError("NAME is required");
  return words;
}

QueryEnum ReadType(const DnsOptions& options, const std::string& type) {
  const int choices = (type.empty() ? 0 : 1) + (options.all ? 1 : 0) + (options.reverse ? 1 : 0) +
                      (options.zone ? 1 : 0);
  const auto number = RecordTypeNumber(type);
  if (!type.empty() && !number) {
    throw UsageError(
        "\"" + type +
        "\" is no record type, as A, MX or TYPE65; the name comes first, and others need a dot");
  }
  const bool zoneType = options.zone && (number == TYPE_AXFR || number == TYPE_IXFR);
  const bool reverseType = options.reverse && number == TYPE_PTR;
  if (choices > 1 && !(choices == 2 && (zoneType || reverseType))) {
    throw UsageError("a type, --all, --reverse and --zone exclude each other");
  }
  const QueryEnum implied = options.all       ? TYPE_ALL
                            : options.reverse ? TYPE_PTR
                            : options.zone    ? TYPE_AXFR
                                              : TYPE_A;
  return number ? static_cast<QueryEnum>(*number) : implied;
}

std::string ReadReverseName(const std::string& address) {
  if (const auto name = ReverseName(address)) return *name;
  throw UsageError("--reverse: \"" + address + "\" is no address");
}

double ReadTimeout(const DnsOptions& options, bool zone) {
  const double seconds = options.timeout.value_or(zone ? kZoneTimeout : kDefaultTimeout);
  if (seconds >= kShortestTimeout && seconds <= kLongestTimeout) return seconds;
  throw UsageError("--timeout: " + SecondsText(kShortestTimeout) + " to " +
                   SecondsText(kLongestTimeout) + " seconds are possible");
}

void ReadServer(const DnsOptions& options, const std::string& word, DnsRequest& request) {
  if (!options.server.empty() && !word.empty()) {
    throw UsageError("--server and @" + word + " exclude each other");
  }
  const std::string& server = word.empty() ? options.server : word;
  const char* const said = word.empty() ? "--server" : "@SERVER";
  if (!server.empty()) ReadHostAndPort(said, server, request.server, request.port);
}

void SetType(const DnsOptions& options, QueryEnum type, DnsRequest& request) {
  request.type = type;
  request.zone = type == TYPE_AXFR || type == TYPE_IXFR;
  if (options.trace && request.zone) throw UsageError("--trace and a zone exclude each other");
  request.tcp = options.tcp || request.zone || request.proxyType != NoDNSProxy;
  request.timeout = ReadTimeout(options, request.zone);
}

}  // namespace

void DeclareDnsOptions(CLI::App& options, DnsOptions& values) {
  DeclareQuestion(options, values);
  DeclareServer(options, values);
  CLI::Option* const brief =
      options
          .add_flag("--short", values.brief,
                    "Print nothing but the data of the records in the answers,\n"
                    "a line each")
          ->group("Output");
  options.add_flag("--json", values.json, "Print one JSON object that holds everything")
      ->excludes(brief)
      ->group("Output");
  options.footer(kExamples);
}

std::vector<DnsRequest> ReadDnsRequests(const DnsOptions& options) {
  Words words = ReadWords(options);
  if (words.types.empty()) words.types.emplace_back();  // what the options say
  DnsRequest request;
  ReadServer(options, words.server, request);
  request.proxy = ReadSocksProxy(options.proxy);
  request.proxyType = static_cast<DNSProxyTypeEnum>(SocksNumber(request.proxy.type));
  request.recursion = !options.noRecursion;
  request.udpSize = options.edns;
  request.dnssec = options.dnssec;
  CheckParallel(options.parallel);
  std::vector<DnsRequest> requests;
  for (const std::string& name : words.names) {
    request.name = options.reverse ? ReadReverseName(name) : name;
    for (const std::string& type : words.types) {
      SetType(options, ReadType(options, type), request);
      requests.push_back(request);
    }
  }
  return requests;
}

}  // namespace netro::tool
