// The layers above the connection: proxy, TLS, the first answer, the clock.

#include <netro/QueryTimeCLS.h>

#include <algorithm>
#include <charconv>
#include <chrono>
#include <cmath>
#include <ctime>
#include <iomanip>
#include <iterator>
#include <locale>
#include <optional>
#include <sstream>

#include "doctor/Checkup.h"
#include "terminal/FailureText.h"
#include "terminal/HostAndPort.h"
#include "terminal/TimeLimit.h"

namespace netro::tool {
namespace {

using enum FindingState;

struct Advice {
  std::int32_t error;  // or a status
  const char* next;
};

constexpr Advice kProxyAdvice[] = {
    {407, "it wants a login: USER@ before its address, or the right password"},
    {9001, "it does not let this computer go there: ask who runs it"},
    {9002, "user or password are wrong: correct them before its address"},
    {9003, "it wants a login: USER@ before its address"},
    {10061, "it does not let this computer go there: ask who runs it"},
    {10002, "it takes connections and is silent: is it a proxy of this kind?"},
    {10042, "it speaks something else: is it a proxy of this kind?"},
    {10054, "it hangs up: is it a proxy of this kind?"},
};

constexpr Advice kTlsAdvice[] = {
    {tlsExpired, "renew the server's certificate; look at this computer's clock too"},
    {tlsNotYetValid, "look at this computer's clock: the certificate's time is to come"},
    {tlsWrongName, "take a name that the certificate has, or have one made for this name"},
    {tlsUnknownIssuer, "name the authority with --cacert, or let the server send its whole chain"},
    {tlsSelfSigned, "name the certificate with --cacert, or have one made by an authority"},
    {tlsWeakKey, "the server needs a certificate with a stronger key"},
    {tlsRevoked, "the server needs another certificate"},
    {tlsPinMismatch, "the key has changed: find out why before you trust it"},
    {tlsProtocolVersion, "the server needs TLS 1.2 at least"},
    {tlsCertificateWanted, "show a client certificate with --cert"},
    {tlsBroken, "no TLS is spoken at this port: try http://, or another port"},
    {tlsCut, "the server hangs up in the handshake: look at its log"},
    {tlsTrustStore, "install the system's trusted certificates, or use --cacert"},
    {10002, "the server is silent in the handshake: is there TLS at this port?"},
    {10054, "the server hangs up in the handshake: is there TLS at this port?"},
};

constexpr Advice kAnswerAdvice[] = {
    {10002, "the server takes connections and is silent: it is overloaded, or stuck"},
    {10042, "the server does not speak HTTP: is it the right port?"},
    {10054, "the server hangs up without a word: look at its log"},
};

template <std::size_t Count>
std::string AdviceFor(const Advice (&table)[Count], std::int32_t error, const char* other) {
  const auto found = std::ranges::find(table, error, &Advice::error);
  return found == std::end(table) ? other : found->next;
}

std::string WhatFailed(const Exchange& exchange) {
  constexpr std::int32_t kHangUp = 10054;
  if (exchange.error == 0) return exchange.text;
  const bool isBare = exchange.text.empty() && exchange.error == kHangUp;
  return FailureText("no success", exchange.error,
                     isBare ? "the connection was closed without an answer" : exchange.text);
}

constexpr double kTolerance = 60;  // seconds

/// Seconds since 1970 of "Sun, 06 Nov 1994 08:49:37 GMT" (RFC 9110, section 5.6.7).
std::optional<double> ReadHttpDate(const std::string& text) {
  using namespace std::chrono;
  std::tm fields{};
  std::istringstream stream(text);
  stream.imbue(std::locale::classic());
  if (!(stream >> std::get_time(&fields, "%a, %d %b %Y %H:%M:%S GMT"))) return std::nullopt;
  if (stream.peek() != std::istringstream::traits_type::eof()) return std::nullopt;
  const year_month_day date(year(fields.tm_year + 1900),
                            month(static_cast<unsigned>(fields.tm_mon + 1)),
                            day(static_cast<unsigned>(fields.tm_mday)));
  const seconds time = hours(fields.tm_hour) + minutes(fields.tm_min) + seconds(fields.tm_sec);
  return static_cast<double>((sys_days(date).time_since_epoch() + time).count());
}

double SecondsOf(const std::string& text) {
  std::uint32_t seconds = 0;
  std::from_chars(text.data(), text.data() + text.size(), seconds);
  return seconds;
}

/// "3 days", "2 hours": in the largest unit of which there are two.
std::string Span(double seconds) {
  struct Unit {
    double seconds;
    const char* name;
  };
  constexpr Unit kUnits[] = {{86400, "days"}, {3600, "hours"}, {60, "minutes"}};
  for (const Unit& unit : kUnits) {
    if (seconds >= 2 * unit.seconds) {
      return std::to_string(static_cast<std::int64_t>(seconds / unit.seconds)) + " " + unit.name;
    }
  }
  return SecondsText(std::round(seconds * 10) / 10) + " seconds";
}

/// `offset`: what the other clock is ahead of this one.
Finding ClockFinding(const std::string& tried, double offset) {
  const bool good = std::abs(offset) <= kTolerance;
  Finding finding{"clock", good ? Fine : Broken, tried, "", ""};
  finding.seen = "this computer agrees within " + SecondsText(kTolerance) + " seconds";
  if (!good) {
    finding.seen =
        "this computer is " + Span(std::abs(offset)) + (offset < 0 ? " ahead" : " behind");
    finding.next = "set the clock (timedatectl set-ntp true); --time SERVER tells which is wrong";
  }
  return finding;
}

void AskTimeServer(Checkup& checkup) {
  QueryTimeCLS time;
  const auto& [host, port] = *checkup.request.timeServer;
  time.Server(host);
  time.Port(port);
  time.SNTPVersion(4);
  time.SNTPReferenceName(false);
  time.DNSURL(checkup.request.options.dns);
  bool good = false;
  RunWithin(checkup.Limit(), [&] { good = time.QueryTime(); });
  const std::string tried = "the time of " + HostAndPortText(host, port);
  if (good) return checkup.Add(ClockFinding(tried, time.SNTPOffset()));
  checkup.Add({"clock", Skipped, tried, FailureText("not told", time.LastErr(), time.LastErrMsg()),
               "ask another time server"});
}

}  // namespace

void CheckProxy(Checkup& checkup) {
  if (!checkup.HasProxy()) {
    return checkup.Add({"proxy", Skipped, "the way to " + checkup.request.target.shown,
                        "no proxy is set for it", ""});
  }
  const Exchange& exchange = Ask(checkup);
  const std::string tried = "through " + HostAndPortText(checkup.host, checkup.port) + " to " +
                            checkup.request.target.shown;
  if (exchange.failed != "proxy")
    return checkup.Add({"proxy", Fine, tried, "it lets us through", ""});
  const std::int32_t key = exchange.status != 0 ? exchange.status : exchange.error;
  checkup.Add({"proxy", Broken, tried, WhatFailed(exchange),
               AdviceFor(kProxyAdvice, key, "ask who runs the proxy")});
}

void CheckTls(Checkup& checkup) {
  const std::string tried = "TLS with " + checkup.request.target.host;
  if (!checkup.request.target.isTls) {
    return checkup.Add({"tls", Skipped, tried, "none is spoken at this port", ""});
  }
  if (checkup.request.tls == nullptr) {
    return checkup.Add({"tls", Skipped, tried, "this netro was built without TLS", ""});
  }
  const Exchange& exchange = Ask(checkup);
  if (exchange.failed == "tls") {
    Finding finding{"tls", Broken, tried, WhatFailed(exchange),
                    AdviceFor(kTlsAdvice, exchange.error, "look at the server's TLS settings")};
    finding.isAboutTime = exchange.error == tlsExpired || exchange.error == tlsNotYetValid;
    return checkup.Add(std::move(finding));
  }
  const TlsInfo& info = exchange.tls;
  checkup.Add({"tls", Fine, tried,
               info.protocol + ", certificate of " + info.subject + ", " +
                   std::to_string(info.daysLeft) + " days left",
               ""});
}

void CheckAnswer(Checkup& checkup) {
  const DoctorTarget& target = checkup.request.target;
  const std::string tried = target.isHttp ? "HEAD " + target.shown : "what the server says first";
  if (target.isTls && checkup.request.tls == nullptr) {
    return checkup.Add({"answer", Skipped, tried, "this netro was built without TLS", ""});
  }
  const Exchange& exchange = Ask(checkup);
  if (exchange.failed == "answer") {
    checkup.Add({"answer", Broken, tried, WhatFailed(exchange),
                 AdviceFor(kAnswerAdvice, exchange.error, "look at the server's log")});
  } else if (exchange.status >= 500) {
    checkup.Add({"answer", Broken, tried, exchange.text,
                 checkup.HasProxy() ? "the proxy, or the server behind it, fails: look at its log"
                                    : "the server fails itself: look at its log"});
  } else if (exchange.isSilent) {
    checkup.Add({"answer", Skipped, tried, "it waits to be asked, and its protocol is not known",
                 "give a URL where it is HTTP"});
  } else {
    checkup.Add({"answer", Fine, tried, exchange.text, ""});
  }
}

void CheckClock(Checkup& checkup) {
  if (checkup.request.timeServer) return AskTimeServer(checkup);
  const std::string tried = "the date of the answer";
  const auto date = checkup.exchange ? ReadHttpDate(checkup.exchange->date) : std::nullopt;
  if (!date) {
    return checkup.Add(
        {"clock", Skipped, tried, "there is none; --time SERVER asks for the time", ""});
  }
  const double age = SecondsOf(checkup.exchange->age);
  const auto now = static_cast<double>(std::time(nullptr));
  checkup.Add(ClockFinding(tried, *date + age - now));
}

}  // namespace netro::tool
