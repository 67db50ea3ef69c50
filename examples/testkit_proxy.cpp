// A test of a program behind a proxy: the login that it sends, and what it does when the proxy
// refuses.
//
// This is a self-check: it ends with 0 when the page came through the one and not the other.
#include <netro/HTTPCls.h>
#include <netro/testkit/HttpServer.h>
#include <netro/testkit/SocksServer.h>

#include <cstdio>
#include <string>

namespace {

/// The program under test.
bool Fetch(const std::string& url, int proxyPort) {
  netro::HTTPCls http;
  http.URL(url);
  http.ProxyType(netro::ProxySocks5Auth);
  http.ProxyURL("127.0.0.1");
  http.ProxyPort(proxyPort);
  http.ProxyUser("jane");
  http.ProxyPassword("secret");
  bool timeout = false;
  http.HTTPQuery(timeout);
  std::printf("%s: %d\n", url.c_str(), static_cast<int>(http.LastErr()));
  return http.LastErr() == 0 && http.HTTPResult() == 200;
}

}  // namespace

int main() {
  using namespace netro::testkit;
  HttpServer pages;
  pages.OnText("/", "hello");

  SocksRules good;
  good.method = 2;  // a login is wanted
  good.user = "jane";
  good.password = "secret";
  SocksServer proxy(good);
  SocksRules other = good;
  other.password = "another one";
  SocksServer refusing(other);

  const bool through = Fetch(pages.Url("/"), proxy.Port());
  const bool refused = !Fetch(pages.Url("/"), refusing.Port());
  return through && refused && pages.Requests().size() == 1 ? 0 : 1;
}
