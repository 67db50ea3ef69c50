// Asks the server: by HTTP, or where nobody knows what it speaks, by listening to how it begins.

#include <netro/HTTPCls.h>

#include <algorithm>
#include <cmath>
#include <string_view>

#include "doctor/Checkup.h"
#include "doctor/Line.h"
#include "terminal/OptionValues.h"
#include "terminal/TimeLimit.h"

namespace netro::tool {
namespace {

constexpr std::chrono::milliseconds kGreetingLimit(2000);

bool Has(const HTTPCls& http, std::string_view what) {
  return std::ranges::find(http.Timeline(), what, &HTTPMoment::What) != http.Timeline().end();
}

bool IsSocks(const Checkup& checkup) {
  const ProxyTypeEnum type = checkup.request.proxy.type;
  return type == ProxySocks4 || type == ProxySocks5NoAuth || type == ProxySocks5Auth;
}

/// The layer at which a query has stopped, by what it had done before.
std::string FailedLayer(const Checkup& checkup, const HTTPCls& http) {
  constexpr std::int32_t kProxyLogin = 407;
  const bool isTls = checkup.request.target.isTls;
  if (http.HTTPResult() == kProxyLogin) return "proxy";
  if (checkup.HasProxy() && IsSocks(checkup) && !Has(http, "socks")) return "proxy";
  if (checkup.HasProxy() && !IsSocks(checkup) && isTls && !Has(http, "tunnel")) return "proxy";
  if (isTls && !Has(http, "tls")) return "tls";
  return http.LastErr() != 0 ? "answer" : "";
}

void Prepare(HTTPCls& http, const Checkup& checkup) {
  const DoctorRequest& request = checkup.request;
  http.URL(request.target.url);
  http.QueryType(QueryHeader);
  http.Tls(request.tls);
  http.ProxyType(request.proxy.type);
  http.ProxyURL(request.proxy.host);
  http.ProxyPort(request.proxy.port);
  http.ProxyUser(request.proxy.user);
  http.ProxyPassword(request.proxy.password);
  http.ProxyUseRemoteDNS(request.proxy.remoteDns);
  http.DNSURL(request.options.dns);
  http.AddressPreference(request.options.preference);
  http.KeepInMemory(true);
}

Exchange AskByHttp(const Checkup& checkup) {
  HTTPCls http;
  Prepare(http, checkup);
  std::string text;
  bool late = false;
  RunWithin(checkup.Limit(), [&] { text = http.HTTPQuery(late); });
  Exchange exchange;
  exchange.failed = FailedLayer(checkup, http);
  exchange.error = http.LastErr();
  exchange.status = http.HTTPResult();
  exchange.text = text.substr(0, text.find_first_of("\r\n"));
  exchange.tls = http.TlsInfo();
  exchange.date = http.Header("Date");
  exchange.age = http.Header("Age");
  return exchange;
}

/// Protects the connection; false: it is no use any more.
bool Protect(Line& line, const Checkup& checkup, Exchange& exchange) {
  if (!checkup.request.target.isTls) return true;
  const bool good = line.socket.StartTls(checkup.request.target.host, checkup.request.tls);
  exchange.tls = line.socket.TlsInfo();
  if (good) return true;
  exchange.failed = "tls";
  exchange.error = line.socket.LastSocketErr();
  exchange.text = line.socket.LastSocketErrMsg();
  return false;
}

void Listen(const Checkup& checkup, Exchange& exchange) {
  Signal opened, begun;
  Line* self = nullptr;
  Line line(checkup.open.front(), checkup.port, [&] {
    if (self == nullptr || self->IsDecided()) opened.Raise();
    if (self != nullptr && (self->isClosed || !self->received.empty())) begun.Raise();
  });
  self = &line;
  opened.Await(checkup.Limit());
  if (!line.isOpen || !Protect(line, checkup, exchange)) {
    if (exchange.failed.empty())
      exchange = {"answer", line.error, line.errorText, 0, {}, {}, {}, false};
    return;
  }
  begun.Await(std::min(checkup.Limit(), kGreetingLimit));
  exchange.text = line.received.substr(0, line.received.find_first_of("\r\n"));
  exchange.isSilent = line.received.empty() && !line.isClosed;
  if (line.received.empty() && line.isClosed) {
    exchange.failed = "answer";
    exchange.error = 10054;
  }
}

}  // namespace

const Exchange& Ask(Checkup& checkup) {
  if (checkup.exchange) return *checkup.exchange;
  Exchange exchange;
  if (checkup.request.target.isHttp) {
    exchange = AskByHttp(checkup);
  } else {
    RunWithin(checkup.Limit(), [&] { Listen(checkup, exchange); });
  }
  return checkup.exchange.emplace(std::move(exchange));
}

}  // namespace netro::tool
