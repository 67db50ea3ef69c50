// https from nginx through squid (CONNECT) and through dante (SOCKS 5), as curl gets it.

#include <gtest/gtest.h>
#include <netro/HTTPCls.h>

#include <memory>
#include <string>

#include "DanteServer.h"
#include "SquidServer.h"
#include "TlsNginx.h"
#include "tests/TlsTestKit.h"

namespace netro::interop {
namespace {

class TlsProxy : public testing::Test {
 protected:
  void SetUp() override {
    if (!TlsNginx::IsInstalled()) GTEST_SKIP() << "nginx is not installed";
    origin_ = std::make_unique<TlsNginx>();
    ASSERT_TRUE(origin_->IsUp()) << origin_->Output();
    WriteFile(origin_->In("www/plain.txt"), "from the origin\n");
    http_.Tls(Trusting());
    http_.StandardDigest(true);
    http_.ProxyURL("127.0.0.1");
    http_.ProxyUser("user");
  }

  std::string Query(const std::string& path, const std::string& host = "localhost") {
    http_.URL(origin_->Url(path, host));
    return http_.HTTPQuery(timeout_);
  }
  // curl tells the proxy's answer to CONNECT too, unless told not to.
  void ExpectAsCurl(const std::string& path, std::vector<std::string> options) {
    options.push_back("--suppress-connect-headers");
    const std::string answer = Query(path);
    const std::string wanted = origin_->CurlOf(Site::Good, path, std::move(options));
    EXPECT_EQ(http_.LastErr(), 0) << answer;
    EXPECT_EQ(StableHeader(answer), StableHeader(wanted));
    EXPECT_EQ(Body(answer), Body(wanted));
    EXPECT_EQ(http_.TlsInfo().protocol, "TLSv1.3");
  }

  std::unique_ptr<TlsNginx> origin_;
  HTTPCls http_;
  bool timeout_ = false;
};

TEST_F(TlsProxy, SquidTunnels) {
  for (const char* scheme : {"basic", "digest"}) {
    const auto squid = StartSquid(scheme);
    if (!squid) GTEST_SKIP() << "squid is not installed";
    ASSERT_TRUE(squid->IsUp()) << squid->Output() << ReadFile(squid->Folder() / "cache.log");
    http_.ProxyPort(squid->Port());
    for (const ProxyTypeEnum type : {ProxyBasicAuthorization, ProxyMSISAServer, ProxyPipe})
      for (const bool keep : {false, true}) {
        SCOPED_TRACE(std::string(scheme) + " kind " + std::to_string(type) + (keep ? " kept" : ""));
        http_.ProxyType(type);
        http_.KeepAlive(keep);
        http_.ProxyPassword("secret");
        for (const char* path : {"/plain.txt", "/plain.txt?a=b", "/missing"})
          ExpectAsCurl(path, {"--proxy", squid->Url(""), "--proxy-" + std::string(scheme),
                              "--proxy-user", "user:secret"});
        Query("/plain.txt", "closed.test");
        EXPECT_EQ(http_.LastErr(), 10061);
        EXPECT_EQ(http_.HTTPResult(), 403);
        http_.ProxyPassword("wrong");
        Query("/plain.txt");
        EXPECT_EQ(http_.LastErr(), 10061);
        EXPECT_EQ(http_.HTTPResult(), 407);
      }
  }
}

TEST_F(TlsProxy, DanteCarriesIt) {
  if (!DanteServer::IsInstalled()) GTEST_SKIP() << "dante-server is not installed";
  const DanteServer dante(DanteServer::kAll);
  ASSERT_TRUE(dante.IsUp()) << dante.Output();
  http_.ProxyPort(dante.Port());
  http_.ProxyType(ProxySocks5NoAuth);
  const std::string proxy = "127.0.0.1:" + std::to_string(dante.Port());
  for (const bool remoteNames : {false, true})
    for (const bool keep : {false, true}) {
      http_.ProxyUseRemoteDNS(remoteNames);
      http_.KeepAlive(keep);
      for (const char* path : {"/plain.txt", "/missing"})
        ExpectAsCurl(path, {remoteNames ? "--socks5-hostname" : "--socks5", proxy});
    }
}

}  // namespace
}  // namespace netro::interop
