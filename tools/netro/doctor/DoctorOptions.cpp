// The options of "netro doctor", and what they ask for.

#include "doctor/DoctorOptions.h"

#include <netro/ShownText.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <iterator>
#include <sstream>
#include <string_view>

#include "terminal/Command.h"
#include "terminal/EnvironmentProxy.h"
#include "terminal/FamilyOptions.h"
#include "terminal/HostAndPort.h"
#include "terminal/OptionValues.h"

namespace netro::tool {
namespace {

constexpr const char* kGroup = "Connection";

constexpr const char* kExamples = R"(
Examples:
  netro doctor example.com
  netro doctor https://example.com/login
  netro doctor mail.example.com:25
  netro doctor --time ntp.example.com --json 192.0.2.7

Walks up the layers: adapter, route, neighbour, resolver (each server by itself), name, address,
path, port, proxy, TLS, the first answer, and the clock. Each line says what was tried and what was
seen, and what to do next where something is wrong. The last line names the layer that is broken.

A URL is asked by HTTP, with HEAD; so is a host without a port (port 443, by https), and one with a
port that is usual for HTTP. At another port the doctor sends nothing, and hears whether the server
begins. Where a proxy is to be used, the way to the proxy is examined.

Exit status: 0 all is fine, 1 a layer is broken, if only in part, 2 wrong usage.

--json prints one object: host, port, url (null where it is not HTTP), proxy (null or host and port),
ok, interrupted, seconds, verdict (layer, null when all is fine; state; text) and layers, a list of
layer, state ("ok", "skipped", "suspect", "partly" or "broken"), tried, seen, next and seconds.)";

constexpr std::int32_t kHttpPorts[] = {80, 591, 3128, 8000, 8008, 8080, 8888};
constexpr std::int32_t kHttpsPorts[] = {443, 8443};
constexpr std::int32_t kTlsPorts[] = {465, 563, 636, 853, 990, 993, 995, 5061, 5671, 6697, 8883};

template <std::size_t Count>
bool IsOneOf(const std::int32_t (&ports)[Count], std::int32_t port) {
  return std::ranges::find(ports, port) != std::end(ports);
}

std::int32_t PortOf(const DoctorOptions& options, std::int32_t written) {
  if (!options.port) return written;
  if (written != 0) throw UsageError("--port: HOST names a port already");
  CheckRange("--port", *options.port, 1, 65535);
  return *options.port;
}

/// The parts of "scheme://user@host:port/path" that decide; the rest is left to HTTPCls.
DoctorTarget ReadUrl(const DoctorOptions& options, std::size_t schemeEnd) {
  constexpr std::string_view kMark = "://";
  DoctorTarget target;
  std::string scheme = options.host.substr(0, schemeEnd);
  std::ranges::transform(scheme, scheme.begin(), [](char c) {
    return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
  });
  if (scheme != "http" && scheme != "https") {
    throw UsageError("HOST: of URLs, those of http and https are possible, not of \"" + scheme +
                     "\"");
  }
  const std::size_t begin = schemeEnd + kMark.size();
  const std::size_t end = std::min(options.host.find_first_of("/?#", begin), options.host.size());
  const std::string authority = options.host.substr(begin, end - begin);
  const std::size_t at = authority.rfind('@');  // npos + 1 is 0
  const std::string user = authority.substr(0, at + 1);
  std::int32_t written = 0;
  ReadHostAndPort("HOST", std::string_view(authority).substr(at + 1), target.host, written);
  target.isHttp = true;
  target.isTls = scheme == "https";
  const std::int32_t port = PortOf(options, written);
  target.port = port != 0 ? port : target.isTls ? 443 : 80;
  const std::string place =
      scheme + "://" + user +
      (port == 0 ? BracketedHost(target.host) : HostAndPortText(target.host, port));
  target.url = place + options.host.substr(end);
  target.shown = ShownUrl(target.url);
  return target;
}

DoctorTarget ReadPlain(const DoctorOptions& options) {
  DoctorTarget target;
  std::int32_t written = 0;
  const bool isBareIPv6 =
      std::ranges::count(options.host, ':') > 1 && !options.host.starts_with('[');
  if (isBareIPv6) {
    target.host = options.host;
  } else {
    ReadHostAndPort("HOST", options.host, target.host, written);
  }
  const std::int32_t port = PortOf(options, written);
  target.port = port != 0 ? port : 443;
  const bool isHttps = IsOneOf(kHttpsPorts, target.port);
  target.isHttp = isHttps || IsOneOf(kHttpPorts, target.port);
  target.isTls = isHttps || IsOneOf(kTlsPorts, target.port);
  target.shown = HostAndPortText(target.host, target.port);
  if (target.isHttp) {
    const bool isUsual = target.port == (isHttps ? 443 : 80);
    target.url = (isHttps ? "https://" : "http://") +
                 (isUsual ? BracketedHost(target.host) : target.shown) + "/";
    target.shown = target.url;
  }
  return target;
}

DoctorTarget ReadTarget(const DoctorOptions& options) {
  const std::size_t scheme = options.host.find("://");
  DoctorTarget target = scheme == std::string::npos ? ReadPlain(options) : ReadUrl(options, scheme);
  CheckHost(target.host);
  return target;
}

Proxy ReadProxyFor(const DoctorOptions& options, const DoctorTarget& target) {
  Proxy proxy;
  if (!options.proxy && !options.proxyType.empty()) throw UsageError("--proxy-type needs --proxy");
  if (options.proxy) {
    proxy = ReadProxy(*options.proxy, options.proxyType);
    if (proxy.type != NoProxy && !target.isHttp) {
      throw UsageError("--proxy: is for HTTP; HOST may be a URL of http or https");
    }
  } else if (target.isHttp) {
    try {
      proxy = ReadProxy(EnvironmentProxy(target.isTls ? "https" : "http", target.host), {});
    } catch (const UsageError& error) {
      throw UsageError(std::string("the environment's proxy, as ") + error.what());
    }
  }
  CompletePassword(proxy, options.proxyPasswordFile);
  return proxy;
}

Server ReadServer(const std::string& option, const std::string& text, std::int32_t port) {
  Server server{"", port};
  ReadHostAndPort(option, text, server.host, server.port);
  CheckHost(server.host);
  return server;
}

std::vector<Server> ReadResolvers(const std::string& list) {
  std::vector<Server> servers;
  std::istringstream texts(list);
  for (std::string text; std::getline(texts, text, ',');) {
    servers.push_back(ReadServer("--dns", text, 53));
  }
  return servers;
}

void DeclareProxy(CLI::App& options, DoctorOptions& values) {
  options
      .add_option_function<std::string>(
          "-x,--proxy", [&values](const std::string& text) { values.proxy = text; },
          "[SCHEME://][USER[:PASSWORD]@]HOST[:PORT], as in netro get; '' is\n"
          "none. If not given: http_proxy, https_proxy, all_proxy, no_proxy")
      ->type_name("PROXY")
      ->group(kGroup);
  options
      .add_option("--proxy-type", values.proxyType, "Instead of the scheme's: " + ProxyTypeNames())
      ->type_name("TYPE")
      ->group(kGroup);
  DeclareProxyPassword(options, values.proxyPasswordFile, kGroup);
}

}  // namespace

void DeclareDoctorOptions(CLI::App& options, DoctorOptions& values) {
  const auto add = [&options](const char* name, auto& value, const char* type, const char* help) {
    options.add_option(name, value, help)->type_name(type)->group(kGroup);
  };
  options
      .add_option("HOST", values.host, "A name or address, HOST:PORT, or a URL of http or https")
      ->required();
  add("-p,--port", values.port, "PORT", "The port; 443 if HOST names none either");
  add("--time", values.timeServer, "SERVER",
      "Compare the clock with this time server, by SNTP, as host[:port];\n"
      "if not given, with the date in the server's answer");
  add("--dns", values.dns, "SERVERS",
      "DNS servers to ask instead of the system's, as\nhost[:port],host[:port]");
  DeclareFamilyOptions(options, values.preference, kGroup);
  DeclareProxy(options, values);
  add("-t,--timeout", values.timeout, "SECONDS", "Limit of each step; 5 if not given");
  add("--total", values.total, "SECONDS", "Limit of all steps together; 60 if not given");
  DeclareTls(options, values.tls, "TLS");
  options.add_flag("--json", values.json, "Print one JSON object that holds everything")
      ->group("Output");
  options.footer(kExamples);
}

DoctorRequest ReadDoctorRequest(const DoctorOptions& options) {
  CheckSeconds("--timeout", options.timeout);
  CheckSeconds("--total", options.total);
  DoctorRequest request;
  request.options = options;
  request.target = ReadTarget(options);
  if (!options.dns.empty()) request.resolvers = ReadResolvers(options.dns);
  if (!options.timeServer.empty())
    request.timeServer = ReadServer("--time", options.timeServer, 123);
  request.proxy = ReadProxyFor(options, request.target);
  request.tls = ReadTls(options.tls, {"http/1.1"});
  return request;
}

}  // namespace netro::tool
