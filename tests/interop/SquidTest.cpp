// The HTTP client through squid with Basic and Digest proxy authentication, compared with what curl
// fetches.

#include <gtest/gtest.h>
#include <netro/HTTPCls.h>

#include "SquidServer.h"
#include "tests/peers/HttpServer.h"

namespace netro::interop {
namespace {

class Squid : public testing::Test {
 protected:
  static void SetUpTestSuite() { server_ = StartSquid("basic"); }
  static void TearDownTestSuite() { server_.reset(); }

  void SetUp() override {
    if (!server_) GTEST_SKIP() << "squid is not installed";
    ASSERT_TRUE(server_->IsUp()) << server_->Output() << ReadFile(server_->Folder() / "cache.log");
    origin_.OnText("/text", "from the origin\n");
    origin_.On("/chunked", [](const peers::HttpRequest&) {
      return peers::HttpServer::Answer(
          "200 OK\r\nContent-Type: text/plain\r\nTransfer-Encoding: chunked",
          "5\r\nhello\r\n6;x=y\r\n again\r\n0\r\n\r\n");
    });
    origin_.On("/echo", [](const peers::HttpRequest& request) {
      return peers::HttpServer::Answer("200 OK\r\nContent-Type: text/plain", request.body);
    });
    http_.ProxyURL("127.0.0.1");
    http_.ProxyPort(server_->Port());
    http_.ProxyUser("user");
    http_.ProxyPassword("secret");
  }

  std::string Query(const std::string& path) {
    http_.URL(origin_.Url(path));
    return http_.HTTPQuery(timeout_);
  }

  std::string CurlThroughProxy(std::vector<std::string> arguments) {
    arguments.insert(arguments.end(),
                     {"--include", "--proxy", server_->Url(""), "--proxy-user", "user:secret"});
    return Curl(arguments);
  }

  static std::unique_ptr<ServerProcess> server_;
  peers::HttpServer origin_;
  HTTPCls http_;
  bool timeout_ = false;
};
std::unique_ptr<ServerProcess> Squid::server_;

TEST_F(Squid, EveryHttpProxyKindFetches) {
  for (const ProxyTypeEnum type : {ProxyBasicAuthorization, ProxyMSISAServer, ProxyPipe}) {
    for (const char* path : {"/text", "/chunked", "/missing", "/text?a=b"}) {
      SCOPED_TRACE(std::string(path) + " through kind " + std::to_string(type));
      http_.ProxyType(type);
      const std::string answer = Query(path);
      const std::string wanted = CurlThroughProxy({origin_.Url(path)});
      EXPECT_EQ(StableHeader(answer), StableHeader(wanted));
      EXPECT_EQ(Body(answer), Body(wanted));
      EXPECT_EQ(http_.LastErr(), 0);
    }
  }
}

TEST(SquidDigest, IsAnsweredInTheStandardForm) {
  const auto server = StartSquid("digest");
  if (!server) GTEST_SKIP() << "squid is not installed";
  ASSERT_TRUE(server->IsUp()) << server->Output() << ReadFile(server->Folder() / "cache.log");
  peers::HttpServer origin;
  origin.OnText("/text", "from the origin\n");
  for (const ProxyTypeEnum type : {ProxyBasicAuthorization, ProxyMSISAServer, ProxyPipe})
    for (const char* password : {"secret", "wrong"}) {
      HTTPCls http;
      http.StandardDigest(true);
      http.ProxyType(type);
      http.ProxyURL("127.0.0.1");
      http.ProxyPort(server->Port());
      http.ProxyUser("user");
      http.ProxyPassword(password);
      http.URL(origin.Url("/text?a=b"));
      bool timeout = false;
      const std::string answer = http.HTTPQuery(timeout);
      const std::string wanted = Curl({"--proxy", server->Url(""), "--proxy-digest", "--proxy-user",
                                       "user:" + std::string(password), origin.Url("/text?a=b")});
      EXPECT_EQ(http.HTTPResult(), password == std::string("secret") ? 200 : 407);
      EXPECT_TRUE(http.HTTPResult() == 407 || Body(answer) == wanted) << answer;
    }
}

TEST_F(Squid, HeadAndPost) {
  http_.ProxyType(ProxyBasicAuthorization);
  http_.QueryType(QueryHeader);
  EXPECT_EQ(StableHeader(Query("/text")),
            StableHeader(CurlThroughProxy({"--head", origin_.Url("/text")})));
  http_.QueryType(QueryPost);
  http_.PostData("a=b\r\n\r\nc");
  const std::string answer = Query("/echo");
  EXPECT_EQ(StableHeader(answer),
            StableHeader(CurlThroughProxy({"--data-binary", "a=b", origin_.Url("/echo")})));
  EXPECT_EQ(Body(answer), "a=b\r\n\r\nc");
}

}  // namespace
}  // namespace netro::interop
