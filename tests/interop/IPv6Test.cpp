// Real servers over IPv6: a web server, a name server, a mail server and a SOCKS proxy on ::1, with
// curl and dig as the measure.

#include <gtest/gtest.h>
#include <netro/HTTPCls.h>
#include <netro/QueryDNSCLS.h>
#include <netro/SMTPCls.h>
#include <netro/SocketCls.h>
#include <unistd.h>

#include "DanteServer.h"
#include "Dig.h"
#include "NamedServer.h"
#include "Postfix.h"
#include "ServerProcess.h"
#include "platform/Address.h"
#include "platform/Sockets.h"

namespace netro::interop {
namespace {

// Says who asks, over IPv6 and on 127.0.0.1.
std::string Configuration(const std::string& folder, const std::string& port) {
  std::string text = "daemon off;\nmaster_process off;\npid " + folder + "/nginx.pid;\n" +
                     (geteuid() == 0 ? "user root;\n" : "") +
                     "events {}\nhttp {\n  access_log off;\n";
  for (const char* use : {"client_body", "proxy", "fastcgi", "uwsgi", "scgi"})
    text += "  " + std::string(use) + "_temp_path " + folder + ";\n";
  return text + "  server {\n    listen [::1]:" + port + ";\n    listen 127.0.0.1:" + port +
         ";\n    return 200 \"$remote_addr $host\\n\";\n  }\n}\n";
}

class IPv6 : public testing::Test {
 protected:
  void SetUp() override {
    if (SourceAddress(*ParseAddress("::1")).IsNone()) GTEST_SKIP() << "there is no IPv6 here";
    if (FindProgram("nginx").empty()) GTEST_SKIP() << "nginx is not installed";
    web_ = std::make_unique<ServerProcess>([](const std::string& folder, const std::string& port) {
      WriteFile(folder + "/nginx.conf", Configuration(folder, port));
      return std::vector<std::string>{FindProgram("nginx"), "-e", folder + "/error.log", "-c",
                                      folder + "/nginx.conf"};
    });
    ASSERT_TRUE(web_->IsUp()) << web_->Output();
    cache_.ClearDNSCache();
  }

  std::string Fetch(const std::string& host) {
    bool timeout = false;
    http_.URL("http://" + host + ":" + std::to_string(web_->Port()) + "/");
    return Body(http_.HTTPQuery(timeout));
  }
  std::string CurlFetch(const std::string& host, std::vector<std::string> arguments = {}) {
    arguments.push_back("http://" + host + ":" + std::to_string(web_->Port()) + "/");
    return Curl(std::move(arguments));
  }

  SocketCls cache_;
  std::unique_ptr<ServerProcess> web_;
  HTTPCls http_;
};

TEST_F(IPv6, WebServerSeesTheSameAsFromCurl) {
  for (const char* host : {"[::1]", "127.0.0.1"}) {
    EXPECT_EQ(Fetch(host), CurlFetch(host, {"--globoff"})) << host;
    EXPECT_EQ(http_.HTTPResult(), 200);
  }
}

// curl is told the addresses that the name server has.
TEST_F(IPv6, NamesWithDeadAddressesLeadWhereTheyLeadCurl) {
  if (!NamedServer::IsInstalled()) GTEST_SKIP() << "bind9 and dig are not installed";
  NamedServer names({{"six.test",
                      "$TTL 60\n@ SOA ns hostmaster 1 1 1 1 1\n@ NS ns\nns A 127.0.0.1\n"
                      "only AAAA ::1\ndead A 127.0.0.5\ndead A 127.0.0.6\ndead AAAA ::1\n"
                      "first A 127.0.0.5\nfirst A 127.0.0.1\nboth A 127.0.0.1\nboth AAAA ::1\n",
                      ""},
                     {"8.b.d.0.1.0.0.2.ip6.arpa",
                      "$TTL 60\n@ SOA ns.six.test. h.six.test. 1 1 1 1 1\n@ NS ns.six.test.\n"
                      "7.0.0.0.0.0.0.0.0.0.0.0.0.0.0.0.0.0.0.0.0.0.0.0 PTR seven.six.test.\n",
                      ""}},
                    "");
  ASSERT_TRUE(names.IsUp()) << names.Output();
  const std::string server = "[::1]:" + std::to_string(names.Port());
  http_.DNSURL(server);
  const std::string port = std::to_string(web_->Port());
  const std::pair<const char*, const char*> cases[] = {
      {"only.six.test", "[::1]"},
      {"dead.six.test", "127.0.0.5,127.0.0.6,[::1]"},
      {"first.six.test", "127.0.0.5,127.0.0.1"}};
  for (const auto& [host, addresses] : cases) {
    const std::string resolved = std::string(host) + ":" + port + ":" + addresses;
    EXPECT_EQ(Fetch(host), CurlFetch(host, {"--resolve", resolved})) << host;
  }
  EXPECT_EQ(Fetch("both.six.test"), "127.0.0.1 both.six.test\n");
  http_.AddressPreference(preferIPv6);
  EXPECT_EQ(Fetch("both.six.test"), "::1 both.six.test\n");

  QueryDNSCLS dns;
  dns.DNSServer("::1");
  dns.DNSPort(names.Port());
  dns.Domain("2001:db8::7");
  dns.QueryType(TYPE_PTR);
  ASSERT_EQ(dns.QueryDNS(), 0) << dns.LastErrMsg();
  EXPECT_EQ(dns.EntryAN(1)->Data(), "seven.six.test");
  cache_.DNSURL(server);
  EXPECT_EQ(cache_.DNSLookup("2001:DB8:0::7"), "seven.six.test");
}

TEST_F(IPv6, ProxyCarriesBothFamilies) {
  if (!DanteServer::IsInstalled()) GTEST_SKIP() << "dante-server is not installed";
  DanteServer proxy(DanteServer::kAll);
  ASSERT_TRUE(proxy.IsUp()) << proxy.Output();
  http_.ProxyType(ProxySocks5NoAuth);
  http_.ProxyPort(proxy.Port());
  for (const char* at : {"::1", "127.0.0.1"}) {
    http_.ProxyURL(at);
    for (const bool remote : {false, true}) {
      http_.ProxyUseRemoteDNS(remote);
      EXPECT_EQ(Fetch("[::1]"), "::1 [::1]\n") << at << proxy.Output();
      EXPECT_EQ(Fetch("127.0.0.1"), "127.0.0.1 127.0.0.1\n") << at;
    }
  }
}

TEST_F(IPv6, MailArrives) {
  if (!Postfix::Missing().empty()) GTEST_SKIP() << Postfix::Missing();
  Postfix server;
  ASSERT_TRUE(server.IsUp()) << server.Output();
  for (const char* host : {"::1", "[::1]"}) {
    SMTPCls smtp;
    smtp.ReceiverHostName(host);
    smtp.Port(server.Port());
    EXPECT_TRUE(smtp.SMTP("a@xy.test", "b@xy.test", "Subject: six\r\n\r\ntext\r\n"))
        << smtp.ResultMessage();
    EXPECT_EQ(server.TakeMail().size(), 1u);
  }
}

}  // namespace
}  // namespace netro::interop
