// The HTTP client through SOCKS proxies: what the proxy is told, that the answer comes through, and
// how refusals are reported.

#include <netro/HTTPCls.h>
#include <netro/Localization.h>

#include "TestKit.h"
#include "tests/peers/HttpServer.h"
#include "tests/peers/SocksServer.h"

namespace netro {
namespace {

constexpr char kAnswer[] =
    "HTTP/1.1 200 OK\r\nContent-Type: text/plain\r\nContent-Length: 5\r\n\r\nhello";

std::string PortBytes(int port) {
  return {static_cast<char>(port / 256), static_cast<char>(port % 256)};
}

class HttpSocks : public testing::Test {
 protected:
  HttpSocks() {
    origin_.OnText("/text", "hello");
    http_.ProxyURL("127.0.0.1");
    http_.TimeOutSeconds(5);
  }

  std::string Query(const SocksServer& proxy, ProxyTypeEnum type, bool remoteNames = false) {
    http_.URL("http://" + std::string(remoteNames ? "origin.test" : "127.0.0.1") + ":" +
              std::to_string(origin_.Port()) + "/text");
    http_.ProxyPort(proxy.Port());
    http_.ProxyType(type);
    http_.ProxyUseRemoteDNS(remoteNames);
    timeout_ = true;
    return http_.HTTPQuery(timeout_);
  }

  HttpServer origin_;
  HTTPCls http_;
  bool timeout_ = false;
};

TEST_F(HttpSocks, EachKindAsksInItsWay) {
  const std::string port = PortBytes(origin_.Port());
  const std::string name = "origin.test";
  const std::string greeting = "\x05\x01\0"s, greetingWithAuth = "\x05\x02\0\x02"s;
  const std::string login = "\x01\x04user\x06secret"s;
  const std::string toAddress = "\x05\x01\0\x01\x7f\0\0\x01"s + port;
  const std::string toName = "\x05\x01\0\x03\x0b"s + name + port;
  const struct {
    const char* name;
    ProxyTypeEnum type;
    bool remoteNames;
    std::uint8_t method;
    std::vector<std::string> requests;
  } kCases[] = {
      {"4a", ProxySocks4, true, 0, {"\x04\x01"s + port + "\0\0\0\x01user\0"s + name + "\0"s}},
      {"5", ProxySocks5NoAuth, false, 0, {greeting, toAddress}},
      {"5 with a name and a user", ProxySocks5Auth, true, 2, {greetingWithAuth, login, toName}},
  };
  for (const auto& c : kCases) {
    SCOPED_TRACE(c.name);
    SocksRules rules;
    rules.method = c.method;
    rules.user = "user";
    rules.password = "secret";
    SocksServer proxy(rules);
    http_.ProxyUser("user");
    http_.ProxyPassword("secret");
    EXPECT_EQ(Query(proxy, c.type, c.remoteNames), kAnswer);
    EXPECT_EQ(proxy.Requests(), c.requests);
  }
  // Through the tunnel goes an ordinary request, without the proxy's credentials.
  for (const peers::HttpRequest& request : origin_.Requests()) {
    EXPECT_EQ(request.target, "/text");
    EXPECT_EQ(request.Field("Proxy-Authorization"), "");
  }
}

TEST_F(HttpSocks, RefusalsNameTheProxy) {
  SocksRules refuses4, noMethod, noUser;
  refuses4.version4Reply = 91;
  noMethod.method = 255;
  noUser.method = 2;
  const std::tuple<SocksRules, ProxyTypeEnum, int> kCases[] = {{refuses4, ProxySocks4, 9001},
                                                               {noUser, ProxySocks5Auth, 9002},
                                                               {noMethod, ProxySocks5Auth, 9003}};
  http_.ProxyUser("user");
  for (const auto& [rules, type, number] : kCases) {
    SocksServer proxy(rules);
    EXPECT_EQ(Query(proxy, type),
              GetMessageText(number, {"127.0.0.1", std::to_string(proxy.Port())}));
    EXPECT_EQ(http_.LastErr(), number);
    EXPECT_FALSE(timeout_);
  }
  EXPECT_TRUE(origin_.Requests().empty());
}

TEST_F(HttpSocks, WhatCannotBeExpressedIsNotSent) {
  const struct {
    const char* name;
    ProxyTypeEnum type;
    std::string user, password;
  } kCases[] = {{"long user", ProxySocks4, std::string(256, 'u'), ""},
                {"zero byte in the user", ProxySocks4, "a\0b"s, ""},
                {"long user", ProxySocks5Auth, std::string(256, 'u'), ""},
                {"long password", ProxySocks5Auth, "u", std::string(256, 'p')}};
  for (const auto& c : kCases) {
    SCOPED_TRACE(c.name);
    SocksServer proxy;
    http_.ProxyUser(c.user);
    http_.ProxyPassword(c.password);
    EXPECT_NE(Query(proxy, c.type), "");
    EXPECT_EQ(http_.LastErr(), 10022);
    EXPECT_TRUE(proxy.Requests().empty());
  }
}

}  // namespace
}  // namespace netro
