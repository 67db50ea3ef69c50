// The HTTP client through squid with Basic and Digest proxy authentication, compared with what curl
// fetches.

#include <gtest/gtest.h>
#include <netro/HTTPCls.h>
#include <netro/testkit/HttpServer.h>

#include "SquidServer.h"

namespace netro::interop {
namespace {

class Squid : public testing::Test {
 protected:
  // Asks for passwords by this scheme.
  void Start(const std::string& scheme) {
    server_ = StartSquid(scheme);
    if (!server_) GTEST_SKIP() << "squid is not installed";
    ASSERT_TRUE(server_->IsUp()) << server_->Output() << ReadFile(server_->Folder() / "cache.log");
    origin_.OnText("/text", "from the origin\n");
    http_.ProxyURL("127.0.0.1");
    http_.ProxyPort(server_->Port());
    http_.ProxyUser("user");
    http_.ProxyPassword("secret");
  }
  bool IsOver() const { return IsSkipped() || HasFatalFailure(); }

  std::string Query(const std::string& path) {
    http_.URL(origin_.Url(path));
    bool timeout = false;
    return http_.HTTPQuery(timeout);
  }
  std::string CurlQuery(const std::string& path, std::vector<std::string> arguments) {
    arguments.insert(arguments.end(), {"--proxy", server_->Url(""), "--proxy-user",
                                       "user:" + http_.ProxyPassword(), origin_.Url(path)});
    return Curl(arguments);
  }
  void ExpectSame(const std::string& path, std::vector<std::string> curl = {}) {
    SCOPED_TRACE(path);
    const std::string answer = Query(path);
    curl.insert(curl.begin(), "--include");
    const std::string wanted = CurlQuery(path, curl);
    EXPECT_EQ(StableHeader(answer), StableHeader(wanted));
    EXPECT_EQ(Body(answer), Body(wanted));
    EXPECT_EQ(http_.LastErr(), 0);
  }

  std::unique_ptr<ServerProcess> server_;
  testkit::HttpServer origin_;
  HTTPCls http_;
};

constexpr ProxyTypeEnum kKinds[] = {ProxyBasicAuthorization, ProxyMSISAServer, ProxyPipe};

TEST_F(Squid, EveryHttpProxyKindFetches) {
  Start("basic");
  if (IsOver()) return;
  origin_.On("/chunked", [](const testkit::HttpRequest&) {
    return testkit::HttpServer::Answer(
        "200 OK\r\nContent-Type: text/plain\r\nTransfer-Encoding: chunked",
        "5\r\nhello\r\n6;x=y\r\n again\r\n0\r\n\r\n");
  });
  origin_.On("/echo", [](const testkit::HttpRequest& request) {
    return testkit::HttpServer::Answer("200 OK\r\nContent-Type: text/plain", request.body);
  });
  for (const ProxyTypeEnum type : kKinds) {
    http_.ProxyType(type);
    for (const char* path : {"/text", "/chunked", "/missing", "/text?a=b"}) ExpectSame(path);
  }
  http_.ProxyType(ProxyBasicAuthorization);
  http_.QueryType(QueryHeader);
  ExpectSame("/text", {"--head"});
  http_.QueryType(QueryPost);
  http_.PostData("a=b\r\n\r\nc");
  ExpectSame("/echo", {"--data-binary", "a=b\r\n\r\nc"});
}

TEST_F(Squid, DigestIsAnsweredInTheStandardForm) {
  Start("digest");
  if (IsOver()) return;
  http_.StandardDigest(true);
  for (const ProxyTypeEnum type : kKinds)
    for (const std::string password : {"secret", "wrong"}) {
      http_.ProxyType(type);
      http_.ProxyPassword(password);
      const std::string body = Body(Query("/text?a=b"));
      const std::string wanted = CurlQuery("/text?a=b", {"--proxy-digest"});
      EXPECT_EQ(http_.HTTPResult(), password == "secret" ? 200 : 407);
      EXPECT_TRUE(http_.HTTPResult() == 407 || body == wanted) << body;
    }
}

}  // namespace
}  // namespace netro::interop
