// The options of "netro time".

#include "time/TimeOptions.h"

#include <CLI/CLI.hpp>

#include "terminal/Command.h"
#include "terminal/HostAndPort.h"

namespace netro::tool {
namespace {

constexpr std::int32_t kSntpPort = 123;
constexpr std::int32_t kTimePort = 37;
constexpr std::int32_t kLongestTimeout = 32767;

constexpr const char* kExamples = R"(
Examples:
  netro time ntp.example.com
  netro time ntp.example.com --version 4
  netro time time.example.com --time-protocol --tcp

SNTP is spoken on port 123 only; on any other port the question is that of the time protocol. The
answer's length decides how it is read. Exit status 1 also when the server says that its time does
not count: by a kiss code, or because its clock is not set.

--json prints one object. server, transport and protocol are what was asked; reply is "SNTP", "time
protocol" or null. ok, refusal (a text, or null), error (number and text), seconds (the whole call).
time in UTC; all that follows in seconds: difference (this system's local time minus time), offset
(the server's clock minus this one), delay (on the way, there and back), round_trip,
precision_seconds, poll_interval, root_delay_seconds, root_dispersion_seconds. Also stratum, leap,
mode, reference, kiss_code, precision_exponent (of 2), and precision, root_delay and root_dispersion
in the numbers that the library's properties hold. What the server did not tell is null.)";

void DeclareQuestion(CLI::App& options, TimeOptions& values) {
  constexpr const char* kGroup = "Question";
  options.add_option("SERVER", values.server, "HOST[:PORT] of the time server")->required();
  auto* timeProtocol =
      options
          .add_flag("--time-protocol", values.timeProtocol,
                    "Ask by the time protocol (RFC 868), on port 37 if none is given")
          ->group(kGroup);
  options.add_option("--version", values.version, "Version of SNTP; 3 if not given")
      ->type_name("3|4")
      ->excludes(timeProtocol)
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
  ReadHostAndPort("SERVER", options.server, request.host, portOfServer);
  request.port = ReadPort(options, portOfServer);
  request.version = options.version.value_or(request.version);
  if (request.version != 3 && request.version != 4) {
    throw UsageError("--version: 3 and 4 are possible");
  }
  request.proxy = ReadSocksProxy(options.connection.proxy, options.connection.proxyType);
  request.tcp = options.tcp || request.proxy.type != NoProxy;
  CheckTimeout(options.connection.timeout, kLongestTimeout);
  return request;
}

}  // namespace netro::tool
