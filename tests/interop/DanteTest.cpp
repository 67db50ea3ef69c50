// The HTTP client through the SOCKS proxy dante, compared with what curl fetches.

#include <gtest/gtest.h>
#include <netro/HTTPCls.h>
#include <netro/testkit/HttpServer.h>
#include <unistd.h>

#include "DanteServer.h"

namespace netro::interop {
namespace {

class Dante : public testing::Test {
 protected:
  void Start(DanteServer::Users users) {
    if (!DanteServer::IsInstalled()) GTEST_SKIP() << "dante-server is not installed";
    server_ = std::make_unique<DanteServer>(users);
    ASSERT_TRUE(server_->IsUp()) << server_->Output();
    origin_.OnText("/text", "from the origin\n");
    proxy_ = "127.0.0.1:" + std::to_string(server_->Port());
    http_.ProxyURL("127.0.0.1");
    http_.ProxyPort(server_->Port());
    http_.ProxyUser("netro");
    http_.URL(origin_.Url("/text"));
  }

  std::string Query(ProxyTypeEnum type) {
    bool timeout = false;
    http_.ProxyType(type);
    return http_.HTTPQuery(timeout);
  }

  testkit::HttpServer origin_;
  std::unique_ptr<DanteServer> server_;
  std::string proxy_;
  HTTPCls http_;
};

TEST_F(Dante, OpenProxyServesEveryKind) {
  Start(DanteServer::kAll);
  if (IsSkipped() || HasFatalFailure()) return;
  const std::tuple<ProxyTypeEnum, bool, const char*> kCases[] = {
      {ProxySocks4, false, "--socks4"},
      {ProxySocks5NoAuth, false, "--socks5"},
      {ProxySocks5NoAuth, true, "--socks5-hostname"},
      {ProxySocks5Auth, false, "--socks5"}};
  for (const auto& [type, remoteNames, curlOption] : kCases) {
    const std::string host = remoteNames ? "localhost" : "127.0.0.1";
    http_.URL("http://" + host + ":" + std::to_string(origin_.Port()) + "/text");
    http_.ProxyUseRemoteDNS(remoteNames);
    const std::string answer = Query(type);
    EXPECT_EQ(answer, Curl({"--include", curlOption, proxy_, http_.URL()})) << curlOption;
    EXPECT_EQ(Body(answer), "from the origin\n");
  }
}

TEST_F(Dante, UserAndPassword) {
  if (geteuid() != 0) GTEST_SKIP() << "dante with passwords needs root for its own user files";
  Start(DanteServer::kWithPassword);
  if (IsSkipped() || HasFatalFailure()) return;
  http_.ProxyPassword("wrong");
  for (const auto& [type, error] :
       {std::pair(ProxySocks5Auth, 9002), {ProxySocks5NoAuth, 9003}, {ProxySocks4, 9001}}) {
    const std::string text = Query(type);
    EXPECT_EQ(http_.LastErr(), error) << text;
    EXPECT_TRUE(text.starts_with("[Proxy SOCKS " + proxy_ + "]")) << text;
    EXPECT_TRUE(origin_.Requests().empty());
  }

  http_.ProxyPassword("secret");
  const std::string answer = Query(ProxySocks5Auth);
  EXPECT_EQ(answer, Curl({"--include", "--proxy", "socks5://netro:secret@" + proxy_, http_.URL()}));
  EXPECT_EQ(Body(answer), "from the origin\n");
}

}  // namespace
}  // namespace netro::interop
