// The part of the tour about HTTPCls: kinds of answers, authentication, proxies, and a program that
// stays alive while it waits.

#include <netro/HTTPCls.h>

#include <cstdint>
#include <string>
#include <string_view>

#include "get/HttpResult.h"
#include "terminal/Timer.h"
#include "terminal/Transfer.h"
#include "tour/TourSections.h"
#include "tour/TourServers.h"

namespace netro::tool {
namespace {

/// The servers of this part.
struct Town {
  TourJournal journal;
  TourServer http{HttpServer(journal)};
  TourServer httpProxy{HttpProxy(journal)};
  TourServer socksProxy{SocksProxy(journal)};
};

/// What a step asks for, and what is expected of it.
struct HttpStep {
  const char* title;
  const char* path;
  void (*prepare)(HTTPCls& http, const Town& town);
  std::int32_t status;  // 0: no answer, but this error
  std::int32_t error;
  std::string_view body;
  std::string_view sent;  // must have reached a server
};

void SetUser(HTTPCls& http) {
  http.User(kTourUser);
  http.Password(kTourPassword);
  http.SendAuthAfterChallenge(true);
}

void SetProxy(HTTPCls& http, ProxyTypeEnum type, const TourServer& proxy) {
  http.ProxyType(type);
  http.ProxyURL("127.0.0.1");
  http.ProxyPort(proxy.Port());
  http.ProxyUser(kTourUser);
  http.ProxyPassword(kTourPassword);
}

/// The proxy looks up a name that nobody else knows.
void AskByName(HTTPCls& http, const Town& town) {
  http.ProxyUseRemoteDNS(true);
  http.URL("http://" + std::string(kTourHost) + ":" + std::to_string(town.http.Port()) + "/hello");
}

constexpr std::string_view kHello = "Hello from the tour.\n";
constexpr std::string_view kWelcome = "Welcome, Aladdin.\n";

const HttpStep kSteps[] = {
    {"GET", "/hello", [](HTTPCls&, const Town&) {}, 200, 0, kHello, "GET /hello HTTP/1.1\r\n"},
    {"HEAD, which asks for the header only", "/hello",
     [](HTTPCls& http, const Town&) { http.QueryType(QueryHeader); }, 200, 0, "", "HEAD /hello "},
    {"POST, with a header line of the program's own", "/echo",
     [](HTTPCls& http, const Town&) {
       http.QueryType(QueryPost);
       http.PostData("city=Agrabah");
       http.AddHeader("Content-Type", "application/x-www-form-urlencoded");
     },
     200, 0, "You sent: city=Agrabah\n", "Content-Length: 12\r\n\r\ncity=Agrabah"},
    {"A chunked answer, put together again", "/chunked", [](HTTPCls&, const Town&) {}, 200, 0,
     "Piece by piece by piece.\n", "GET /chunked "},
    {"A page that does not exist", "/nowhere", [](HTTPCls&, const Town&) {}, 404, 0,
     "There is no such page.\n", "GET /nowhere "},
    {"Basic authentication", "/basic", [](HTTPCls& http, const Town&) { SetUser(http); }, 200, 0,
     kWelcome, "Authorization: Basic "},
    {"Digest authentication: refused, then answered", "/digest",
     [](HTTPCls& http, const Town&) { SetUser(http); }, 200, 0, kWelcome,
     "Authorization: Digest Username=\"Aladdin\""},
    {"A binary body, which goes to a file", "/picture", [](HTTPCls&, const Town&) {}, 200, 0,
     kTourPicture, "GET /picture "},
    {"Through an HTTP proxy that asks for a password", "/hello",
     [](HTTPCls& http, const Town& town) { SetProxy(http, ProxyPipe, town.httpProxy); }, 200, 0,
     kHello, "Proxy-Authorization: Basic "},
    {"Through a SOCKS 4 proxy", "/hello",
     [](HTTPCls& http, const Town& town) { SetProxy(http, ProxySocks4, town.socksProxy); }, 200, 0,
     kHello, std::string_view("\4\1", 2)},
    {"Through a SOCKS 4a proxy, which looks up the name", "/hello",
     [](HTTPCls& http, const Town& town) {
       SetProxy(http, ProxySocks4, town.socksProxy);
       AskByName(http, town);
     },
     200, 0, kHello, kTourHost},
    {"Through a SOCKS 5 proxy", "/hello",
     [](HTTPCls& http, const Town& town) { SetProxy(http, ProxySocks5NoAuth, town.socksProxy); },
     200, 0, kHello, std::string_view("\5\1\0\1", 4)},
    {"Through a SOCKS 5 proxy, with a password and a name to look up", "/hello",
     [](HTTPCls& http, const Town& town) {
       SetProxy(http, ProxySocks5Auth, town.socksProxy);
       AskByName(http, town);
     },
     200, 0, kHello, "\7Aladdin\13open sesame"},
    {"Through a SOCKS 5 proxy, with a wrong password", "/hello",
     [](HTTPCls& http, const Town& town) {
       SetProxy(http, ProxySocks5Auth, town.socksProxy);
       http.ProxyPassword("open barley");
     },
     0, 9002, "", "\7Aladdin\13open barley"},
    {"A server that is not there", "/hello",
     [](HTTPCls& http, const Town&) {
       const TourServer gone([] { return nullptr; });
       http.URL("http://127.0.0.1:" + std::to_string(gone.Port()) + "/");
     },
     0, 10061, "", ""},
};

const HttpStep kSlowStep = {"A slow answer, while a counter keeps counting",
                            "/slow",
                            [](HTTPCls&, const Town&) {},
                            200,
                            0,
                            "Sorry for the wait.\n",
                            "GET /slow "};
const HttpStep kSilentStep = {"A server that never answers, given up with StopWaiting",
                              "/silent",
                              [](HTTPCls&, const Town&) {},
                              0,
                              9999,
                              "",
                              "GET /silent "};

std::string CallText(const HTTPCls& http) {
  constexpr const char* kMethods[] = {"GET", "POST", "HEAD"};
  constexpr const char* kProxies[] = {"",
                                      "ProxyBasicAuthorization",
                                      "ProxyMSISAServer",
                                      "ProxySocks4",
                                      "ProxySocks5NoAuth",
                                      "ProxySocks5Auth",
                                      "ProxyPipe"};
  std::string text = std::string(kMethods[http.QueryType()]) + " " + http.URL();
  if (http.ProxyType() != NoProxy) {
    text += std::string(" through ") + kProxies[http.ProxyType()] + " " + http.ProxyURL() + ":" +
            std::to_string(http.ProxyPort());
  }
  return text;
}

std::string OutcomeText(const HttpResult& result) {
  if (!result.IsAnswer()) {
    return "error " + std::to_string(result.errorNumber) + ", \"" + result.errorText + "\"";
  }
  std::string text =
      std::to_string(result.status) + " " + result.reason + ", " + ByteCount(result.bodyLength);
  text += result.contentType.empty() ? "" : " of " + result.contentType;
  return text + (result.file.empty() ? "" : " in a temporary file");
}

TourStep Run(Town& town, const HttpStep& step, HTTPCls& http) {
  http.URL("http://127.0.0.1:" + std::to_string(town.http.Port()) + step.path);
  http.TimeOutSeconds(5);
  step.prepare(http, town);

  TourStep report;
  report.title = step.title;
  report.call = CallText(http);
  const HttpResult result = Query(http);
  const std::string body = WholeBody(result);

  report.seconds = result.seconds;
  report.outcome = OutcomeText(result);
  report.asExpected = result.errorNumber == step.error && result.status == step.status &&
                      body == step.body && (step.sent.empty() || town.journal.WasSent(step.sent));
  report.messages = town.journal.Take();
  return report;
}

TourStep CountWhileWaiting(Town& town) {
  int count = 0;
  const Timer counter(10, [&count] { ++count; });
  HTTPCls http;
  TourStep report = Run(town, kSlowStep, http);
  report.outcome += ", and the counter went to " + std::to_string(count);
  report.asExpected = report.asExpected && count >= 10;
  return report;
}

TourStep GiveUp(Town& town) {
  HTTPCls http;
  const Timer patience(100, [&http] { http.StopWaiting(); });
  TourStep report = Run(town, kSilentStep, http);
  report.asExpected = report.asExpected && report.seconds < 1;
  return report;
}

}  // namespace

void TourHttp(TourReport& report) {
  Town town;
  for (const HttpStep& step : kSteps) {
    HTTPCls http;
    report.Add(Run(town, step, http));
  }
  report.Add(CountWhileWaiting(town));
  report.Add(GiveUp(town));
}

}  // namespace netro::tool
