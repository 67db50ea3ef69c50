// The options of "netro time".

#include "time/TimeOptions.h"

#include <CLI/CLI.hpp>

#include "terminal/Command.h"
#include "terminal/HostAndPort.h"
#include "terminal/OptionValues.h"

namespace netro::tool {
namespace {

constexpr std::int32_t kSntpPort = 123;
constexpr std::int32_t kTimePort = 37;
constexpr std::int32_t kLongestTimeout = 32767;
constexpr std::int32_t kMostSamples = 100;

constexpr const char* kExamples = R"(
Examples:
  netro time ntp.example.com
  netro time ntp.example.com --version 4
  netro time time.example.com --time-protocol --tcp
  netro time ntp1.example.com ntp2.example.com ntp3.example.com

SNTP is spoken on port 123 only; on any other port the question is that of the time protocol. The
answer's length decides how it is read. Exit status 1 also when the server says that its time does
not count: by a kiss code, or because its clock is not set.

--json prints one object. server, transport and protocol are what was asked; reply is "SNTP", "time
protocol" or null. ok, refusal (a text, or null), error (number and text), seconds (the whole call).
time in UTC; all that follows in seconds: difference (this system's local time minus time), offset
(the server's clock minus this one), delay (on the way, there and back), round_trip,
precision_seconds, poll_interval, root_delay_seconds, root_dispersion_seconds. Also stratum, leap,
mode, reference, kiss_code, precision_exponent (of 2), and precision, root_delay and root_dispersion
in the numbers that the library's properties hold. What the server did not tell is null.

Several servers are asked by SNTP at the same time, a few times each. Of each the reply with the
least delay counts. The last line tells what most of them agree on: the true time is within +/- of
the offset from this system's. A false ticker contradicts them; left out is what told no time that
counts. Exit status 1 when no majority agrees. --json then prints ok, error, seconds, offset, bound,
and the list servers: server, state ("agrees", "false ticker", "left out", "unjudged"), reason,
error_number, samples, offset, bound, delay, root_delay_seconds, root_dispersion_seconds, stratum,
leap, reference, kiss_code.)";

void DeclareQuestion(CLI::App& options, TimeOptions& values) {
  constexpr const char* kGroup = "Question";
  options
      .add_option("SERVER", values.servers,
                  "HOST[:PORT] of the time server; several are asked at the\n"
                  "same time, and compared")
      ->required();
  auto* timeProtocol =
      options
          .add_flag("--time-protocol", values.timeProtocol,
                    "Ask by the time protocol (RFC 868), on port 37 if none is given")
          ->group(kGroup);
  options.add_option("--version", values.version, "Version of SNTP; 3 if not given")
      ->type_name("3|4")
      ->excludes(timeProtocol)
      ->group(kGroup);
  options
      .add_flag("--reference-name", values.referenceName,
                "Look up the name of the reference that the server tells of,\n"
                "for a second at most")
      ->group(kGroup);
  options
      .add_option("--samples", values.samples,
                  "Of several servers: questions to each; 4 if not given")
      ->type_name("N")
      ->group(kGroup);
  options
      .add_option("--total", values.total,
                  "Of several servers: limit of the whole survey; 10 if not given")
      ->type_name("SECONDS")
      ->group(kGroup);
}

void DeclareWay(CLI::App& options, TimeOptions& values) {
  constexpr const char* kGroup = "Connection";
  options.add_flag("--tcp", values.tcp, "Ask over TCP instead of UDP")->group(kGroup);
  options.add_option("-p,--port", values.port, "The port, unless SERVER names one")
      ->type_name("PORT")
      ->group(kGroup);
  DeclareConnectionOptions(options, values.connection, "Ask over TCP through",
                           "Limit of the query; over TCP of each wait (connecting,\n"
                           "proxy, answer)");
}

std::int32_t ReadPort(const TimeOptions& options, std::int32_t portOfServer) {
  if (options.port && portOfServer != 0) throw UsageError("--port: SERVER names a port already");
  const std::int32_t usual = options.timeProtocol ? kTimePort : kSntpPort;
  const std::int32_t port = portOfServer != 0 ? portOfServer : options.port.value_or(usual);
  if (port < 1 || port > 65535) {
    throw UsageError("--port: " + std::to_string(port) + " is no port number");
  }
  if (options.timeProtocol && port == kSntpPort) {
    throw UsageError("--time-protocol: port 123 belongs to SNTP");
  }
  return port;
}

}  // namespace

void DeclareTimeOptions(CLI::App& options, TimeOptions& values) {
  DeclareQuestion(options, values);
  DeclareWay(options, values);
  options.add_flag("--json", values.json, "Print one JSON object that holds everything")
      ->group("Output");
  options.footer(kExamples);
}

TimeRequest ReadTimeRequest(const TimeOptions& options) {
  TimeRequest request;
  std::int32_t portOfServer = 0;
  if (options.samples) throw UsageError("--samples: is for several servers");
  if (options.total) throw UsageError("--total: is for several servers");
  ReadHostAndPort("SERVER", options.servers.front(), request.host, portOfServer);
  request.port = ReadPort(options, portOfServer);
  request.version = options.version.value_or(request.version);
  if (request.version != 3 && request.version != 4) {
    throw UsageError("--version: 3 and 4 are possible");
  }
  request.proxy = ReadSocksProxy(options.connection.proxy);
  request.tcp = options.tcp || request.proxy.type != NoProxy;
  CheckLimit("--timeout", options.connection.timeout, kLongestTimeout);
  return request;
}

bool IsSurvey(const TimeOptions& options) { return options.servers.size() > 1; }

SurveyRequest ReadSurveyRequest(const TimeOptions& options) {
  const auto refuse = [](bool given, const std::string& option) {
    if (given)
      throw UsageError(option + ": several servers are asked by SNTP over UDP, on port 123");
  };
  refuse(options.tcp, "--tcp");
  refuse(options.timeProtocol, "--time-protocol");
  refuse(options.version.has_value(), "--version");
  refuse(options.referenceName, "--reference-name");
  refuse(options.port.value_or(kSntpPort) != kSntpPort, "--port");
  refuse(!options.connection.proxy.address.empty(), "--proxy");
  SurveyRequest request;
  for (const std::string& server : options.servers) {
    std::int32_t port = kSntpPort;
    ReadHostAndPort("SERVER", server, request.servers.emplace_back(), port);
    refuse(port != kSntpPort, server);
  }
  request.samples = options.samples.value_or(request.samples);
  if (request.samples < 1 || request.samples > kMostSamples) {
    throw UsageError("--samples: 1 to 100 are possible");
  }
  request.total = options.total.value_or(request.total);
  CheckLimit("--total", request.total, kLongestTimeout);
  CheckLimit("--timeout", options.connection.timeout, kLongestTimeout);
  request.connection = options.connection;
  request.json = options.json;
  return request;
}

}  // namespace netro::tool
