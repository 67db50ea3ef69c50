// The way that "netro get" takes to servers.

#include "get/WayOptions.h"

#include <CLI/CLI.hpp>
#include <charconv>
#include <limits>
#include <string_view>

#include "terminal/EnvironmentProxy.h"
#include "get/UrlText.h"
#include "terminal/Batch.h"
#include "terminal/Command.h"
#include "terminal/FamilyOptions.h"
#include "terminal/HostAndPort.h"
#include "terminal/OptionValues.h"
#include "terminal/SecondsText.h"

namespace netro::tool {
namespace {

constexpr const char* kGroup = "Connection";
constexpr std::int32_t kLongest = 86'400;  // seconds

// "host:port:address", where the address may be one of IPv6, in brackets or not.
HostAddressOption ReadResolve(const std::string& text) {
  HostAddressOption option;
  const std::size_t host = text.find(':');
  const std::size_t port = host == text.npos ? host : text.find(':', host + 1);
  if (port != text.npos) {
    ReadHostAndPort("--resolve", text.substr(0, port), option.host, option.port);
    option.address = text.substr(port + 1);
  }
  if (option.address.starts_with('[') && option.address.ends_with(']')) {
    option.address = option.address.substr(1, option.address.size() - 2);
  }
  if (!option.address.empty()) return option;
  throw UsageError("--resolve: \"" + text + "\" is not of the form HOST:PORT:ADDRESS");
}

// "500", "500k", "2M"
std::uint64_t ReadRate(std::string_view text) {
  constexpr std::uint64_t kMost = 1'000'000'000'000;
  std::uint64_t rate = 0;
  const char* const end = text.data() + text.size();
  const char* unit = std::from_chars(text.data(), end, rate).ptr;
  std::uint64_t factor = 1;
  if (unit != end && (*unit == 'k' || *unit == 'K')) factor = 1'000, ++unit;
  if (unit != end && factor == 1 && *unit == 'M') factor = 1'000'000, ++unit;
  if (unit == end && rate >= 1 && rate <= kMost / factor) return rate * factor;
  throw UsageError("--limit-rate: \"" + std::string(text) +
                   "\" is no rate; 500k is 500,000 bytes a second, 2M is 2,000,000");
}

void DeclareProxies(CLI::App& options, WayOptions& values) {
  options
      .add_option_function<std::string>(
          "-x,--proxy", [&values](const std::string& text) { values.proxy = text; },
          "[SCHEME://][USER[:PASSWORD]@]HOST[:PORT]; schemes are http\n"
          "(port 8080), socks4, socks4a, socks5, socks5h (port 1080);\n"
          "with socks4a and socks5h the proxy looks up the name; '' is none.\n"
          "If not given: http_proxy, https_proxy, all_proxy and no_proxy")
      ->type_name("PROXY")
      ->group(kGroup);
  options
      .add_option("--proxy-type", values.proxyType,
                  "Instead of the scheme's: basic (sends credentials at once),\n"
                  "msisa (the same), pipe (when asked), socks4, socks4a, socks5,\n"
                  "socks5-auth")
      ->type_name("TYPE")
      ->group(kGroup);
  DeclareProxyPassword(options, values.proxyPasswordFile, kGroup);
  options
      .add_option("--noproxy", values.noProxy,
                  "Go to these hosts, and those below them, without a proxy; '*' is\n"
                  "all; as host,host")
      ->type_name("HOSTS")
      ->group(kGroup);
}

void DeclareHosts(CLI::App& options, WayOptions& values) {
  options
      .add_option("--resolve", values.resolve,
                  "Connect to this address instead of looking the host up; may be\n"
                  "repeated")
      ->type_name("HOST:PORT:ADDRESS")
      ->expected(1)
      ->multi_option_policy(CLI::MultiOptionPolicy::TakeAll)
      ->group(kGroup);
  options.add_option("--dns", values.dns, "DNS servers to ask, as host[:port],host[:port]")
      ->type_name("SERVERS")
      ->group(kGroup);
  DeclareFamilyOptions(options, values.preference, kGroup);
  DeclareParallel(options, values.parallel, "The most URLs to fetch at once");
}

void DeclareLimits(CLI::App& options, WayOptions& values) {
  const auto number = [&options](const char* name, auto& value, const char* type,
                                 const char* help) {
    options.add_option(name, value, help)->type_name(type)->group(kGroup);
  };
  number("-t,--timeout", values.timeout, "SECONDS",
         "Give up when nothing comes or goes for so long; 30 if not given.\n"
         "A transfer that goes on has no limit but --max-time");
  number("--connect-timeout", values.connectTimeout, "SECONDS",
         "Limit for lookup, proxy, connecting and TLS together; that of\n"
         "--timeout if not given");
  options
      .add_option("-m,--max-time", values.maxTime,
                  "Limit for all of a URL, redirects and repetitions included; also\n"
                  "0.5")
      ->type_name("SECONDS")
      ->group(kGroup);
  options
      .add_option("--limit-rate", values.limitRate,
                  "The most bytes a second to receive, of each URL; 500k, 2M")
      ->type_name("RATE")
      ->group(kGroup);
  number("--max-redirects", values.maxRedirects, "COUNT",
         "The most redirects to follow; 10 if not given, 0 prints them");
  number("--retry", values.retries, "COUNT",
         "Try again so often after failures that may pass (time-outs, lost\n"
         "connections, 408, 429, 500, 502, 503, 504): when the server says\n"
         "so (Retry-After), else after 1, 2, 4 ... seconds");
}

}  // namespace

void DeclareWay(CLI::App& options, WayOptions& values) {
  DeclareProxies(options, values);
  DeclareHosts(options, values);
  DeclareLimits(options, values);
}

Way ReadWay(const WayOptions& options) {
  constexpr std::int32_t kMostRepetitions = 100;
  Way way;
  CheckLimit("--timeout", options.timeout, kLongest);
  CheckLimit("--connect-timeout", options.connectTimeout, kLongest, NoLimit::Zero);
  CheckLimit("--max-time", options.maxTime, kLongest * 30.0, NoLimit::Zero);
  CheckRange("--max-redirects", options.maxRedirects, 0, kMostRepetitions);
  CheckRange("--retry", options.retries, 0, kMostRepetitions);
  CheckParallel(options.parallel);
  way.options = options;
  if (options.proxy || !options.proxyType.empty() || !options.proxyPasswordFile.empty()) {
    way.proxy = ReadProxy(options.proxy.value_or(""), options.proxyType);
    CompletePassword(*way.proxy, options.proxyPasswordFile);
  }
  for (const std::string& text : options.resolve) way.addresses.push_back(ReadResolve(text));
  if (!options.limitRate.empty()) way.bytesPerSecond = ReadRate(options.limitRate);
  return way;
}

Proxy ProxyFor(const Way& way, const std::string& url) {
  const std::string host = HostOf(url);
  if (IsExempt(way.options.noProxy, host)) return {};
  if (way.proxy) return *way.proxy;
  try {
    return ReadProxy(EnvironmentProxy(ProtocolOf(url), host), {});
  } catch (const UsageError& error) {
    throw UsageError(std::string("the environment's proxy, as ") + error.what());
  }
}

void Apply(HTTPCls& http, const Way& way, const Proxy& proxy) {
  const WayOptions& options = way.options;
  http.ProxyType(proxy.type);
  http.ProxyURL(proxy.host);
  http.ProxyPort(proxy.port);
  http.ProxyUser(proxy.user);
  http.ProxyPassword(proxy.password);
  http.ProxyUseRemoteDNS(proxy.remoteDns);
  http.DNSURL(options.dns);
  http.AddressPreference(options.preference);
  for (const auto& [host, port, address] : way.addresses) http.AddHostAddress(host, port, address);
  http.TimeOutSeconds(std::numeric_limits<std::int32_t>::max());
  http.IdleTimeout(TimeOf(options.timeout));
  http.ConnectTimeout(
      TimeOf(options.connectTimeout > 0 ? options.connectTimeout : options.timeout));
  http.TotalTimeout(TimeOf(options.maxTime));
  http.MaxBytesPerSecond(way.bytesPerSecond);
  http.MaxRedirects(options.maxRedirects);
  http.KeepAlive(true);
}

}  // namespace netro::tool
