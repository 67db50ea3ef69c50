// How the HTTP client answers the challenges of servers and proxies: how often, on which
// connection, and with which line.

#include <gtest/gtest.h>
#include <netro/HTTPCls.h>

#include <algorithm>
#include <string>
#include <vector>

#include "tests/PlainMd5.h"
#include "tests/peers/BytesServer.h"

namespace netro {
namespace {

using peers::AwaitText;
using peers::BytesServer;
using peers::Script;
using peers::Send;

std::string Answer(const std::string& status, const std::string& fields = "") {
  return "HTTP/1.1 " + status + "\r\nContent-Type: text/plain\r\n" + fields +
         "Content-Length: 0\r\n\r\n";
}

// Runs a query against a server that gives these answers in turn, the last one for ever; returns
// what each connection sent.
std::vector<std::string> Exchange(HTTPCls& http, const std::vector<std::string>& answers) {
  std::vector<Script> scripts;
  for (const std::string& answer : answers)
    scripts.push_back({AwaitText("\r\n\r\n"), Send(answer)});
  BytesServer server(scripts);
  http.ProxyURL("127.0.0.1");
  http.ProxyPort(server.Port());
  http.URL("http://127.0.0.1:" + std::to_string(server.Port()) + "/dir/index.html?a=b");
  bool timeout = false;
  http.HTTPQuery(timeout);
  std::vector<std::string> requests;
  for (std::size_t i = 0; i < server.Connections(); ++i) requests.push_back(server.Received(i));
  return requests;
}

// The whole lines of a field, without their line ends.
std::vector<std::string> Lines(const std::string& request, const std::string& field) {
  std::vector<std::string> lines;
  for (std::size_t at = 0; (at = request.find("\r\n" + field + ": ", at)) != std::string::npos;) {
    at += 2;
    lines.push_back(request.substr(at, request.find("\r\n", at) - at));
  }
  return lines;
}

std::string OnlyLine(const std::string& request, const std::string& field) {
  const std::vector<std::string> lines = Lines(request, field);
  EXPECT_EQ(lines.size(), 1u) << request;
  return lines.empty() ? std::string() : lines[0];
}

struct Credentials {
  std::string user, password, realm, nonce;
};

// Checks the whole line and returns the client nonce.
std::string ExpectDigest(const std::string& line, const std::string& field, const Credentials& c,
                         const std::string& method = "GET") {
  const std::string uri = "/dir/index.html?a=b";
  const std::string start = field + ": Digest Username=\"" + c.user + "\", realm=\"" + c.realm +
                            "\", qop=\"auth\", algorithm=\"MD5\", uri=\"" + uri + "\", nonce=\"" +
                            c.nonce + "\", nc=\"00000001\", cnonce=\"";
  EXPECT_EQ(line.substr(0, start.size()), start);
  if (line.size() < start.size()) return {};
  const std::string cnonce = line.substr(start.size(), line.find('"', start.size()) - start.size());
  EXPECT_FALSE(cnonce.empty());
  const std::string response =
      PlainMd5(PlainMd5(c.user + ":" + c.realm + ":" + c.password) + ":" + c.nonce +
               ":00000001:" + cnonce + ":auth:" + PlainMd5(method + ":" + uri));
  EXPECT_EQ(line.substr(start.size() + cnonce.size()), "\", response=\"" + response + "\"");
  return cnonce;
}

void SetUser(HTTPCls& http) {
  http.User("user");
  http.Password("secret");
  http.SendAuthAfterChallenge(true);
}

TEST(PlainMd5Itself, KnowsTheTestVectors) {
  EXPECT_EQ(PlainMd5(""), "d41d8cd98f00b204e9800998ecf8427e");
  EXPECT_EQ(PlainMd5("message digest"), "f96b697d7cb7938d525a2f31aaf161d0");
}

TEST(HttpAuth, EachChallengeIsAnsweredAtMostOnce) {
  const struct {
    std::vector<std::string> statuses;
    bool afterChallenge;
    std::size_t connections;
    int result;
  } kCases[] = {
      {{"200 OK"}, true, 1, 200},
      {{"401 Unauthorized"}, false, 1, 401},
      {{"401 Unauthorized"}, true, 2, 401},
      {{"401 Unauthorized", "200 OK"}, true, 2, 200},
      {{"407 Proxy Authentication Required"}, false, 2, 407},
      {{"407 Proxy Authentication Required", "200 OK"}, false, 2, 200},
      {{"407 Proxy Authentication Required", "401 Unauthorized"}, false, 2, 401},
      {{"407 Proxy Authentication Required", "401 Unauthorized"}, true, 3, 401},
      {{"407 Proxy Authentication Required", "401 Unauthorized", "200 OK"}, true, 3, 200},
      // The numbers count wherever they stand in the status line.
      {{"200 Room 401", "200 OK"}, true, 2, 200},
      {{"200 Room 401"}, false, 1, 200},
      {{"200 x4070y", "200 OK"}, false, 2, 200},
      {{"200 OK\r\nX-Note: 401 407"}, true, 1, 200},
  };
  for (const ProxyTypeEnum type : {NoProxy, ProxyBasicAuthorization, ProxyMSISAServer, ProxyPipe})
    for (const auto& c : kCases) {
      SCOPED_TRACE(c.statuses[0] + ", proxy " + std::to_string(type));
      HTTPCls http;
      http.ProxyType(type);
      http.SendAuthAfterChallenge(c.afterChallenge);
      std::vector<std::string> answers;
      for (const std::string& status : c.statuses) answers.push_back(Answer(status));
      EXPECT_EQ(Exchange(http, answers).size(), c.connections);
      EXPECT_EQ(http.HTTPResult(), c.result);
      EXPECT_EQ(http.LastErr(), 0);
    }
}

TEST(HttpAuth, SchemesOtherThanDigestAreAnsweredWithBasic) {
  for (const char* challenge :
       {"", "WWW-Authenticate: Basic realm=\"x\"\r\n", "WWW-Authenticate: Negotiate\r\n",
        "WWW-Authenticate:\r\n", "WWW-Authenticate: Digestive nonce=\"n\"\r\n",
        "Proxy-Authenticate: Digest realm=\"r\", nonce=\"n\"\r\n"}) {
    SCOPED_TRACE(challenge);
    HTTPCls http;
    SetUser(http);
    const auto requests = Exchange(http, {Answer("401 No", challenge), Answer("200 OK")});
    ASSERT_EQ(requests.size(), 2u);
    EXPECT_EQ(requests[0], requests[1]);
    EXPECT_EQ(OnlyLine(requests[1], "Authorization"), "Authorization: Basic dXNlcjpzZWNyZXQ=");
  }
}

TEST(HttpAuth, DigestIsReadInEveryForm) {
  const struct {
    const char* challenge;
    const char *realm, *nonce;
  } kCases[] = {
      {"WWW-Authenticate: Digest realm=\"test area\", nonce=\"abc\", qop=\"auth\"", "test area",
       "abc"},
      {"www-authenticate:digest NONCE=abc,REALM=test", "test", "abc"},
      {"WWW-AUTHENTICATE:  DIGEST  realm = \"r\" ,  nonce = \"a=b==\" , opaque=\"o\"", "r",
       "a=b=="},
      {"WWW-Authenticate: Digest qop=\"auth,auth-int\", realm=\"r\", algorithm=MD5, stale=false, "
       "nonce=\"n\"",
       "r", "n"},
  };
  for (const auto& c : kCases) {
    SCOPED_TRACE(c.challenge);
    HTTPCls http;
    SetUser(http);
    const auto requests =
        Exchange(http, {Answer("401 No", std::string(c.challenge) + "\r\n"), Answer("200 OK")});
    ASSERT_EQ(requests.size(), 2u);
    ExpectDigest(OnlyLine(requests[1], "Authorization"), "Authorization",
                 {"user", "secret", c.realm, c.nonce});
  }
}

TEST(HttpAuth, DigestCoversTheMethodAndEveryClientNonceIsNew) {
  const std::string challenge = "WWW-Authenticate: Digest realm=\"r\", nonce=\"n\"\r\n";
  std::vector<std::string> cnonces;
  const struct {
    QueryTypeEnum type;
    const char* method;
  } kCases[] = {{QueryGet, "GET"}, {QueryHeader, "HEAD"}, {QueryPost, "POST"}, {QueryGet, "GET"}};
  HTTPCls http;
  SetUser(http);
  http.PostData("abc");
  http.AddHeader("X-A", "1");
  for (const auto& c : kCases) {
    http.QueryType(c.type);
    const auto requests = Exchange(http, {Answer("401 No", challenge), Answer("200 OK")});
    ASSERT_EQ(requests.size(), 2u);
    cnonces.push_back(ExpectDigest(OnlyLine(requests[1], "Authorization"), "Authorization",
                                   {"user", "secret", "r", "n"}, c.method));
    EXPECT_EQ(OnlyLine(requests[1], "X-A"), "X-A: 1");
    const std::string end = c.type == QueryPost ? "\r\nX-A: 1\r\nContent-Length: 3\r\n\r\nabc"
                                                : "\r\nX-A: 1\r\n\r\n\r\n";
    EXPECT_EQ(requests[1].substr(requests[1].size() - std::min(requests[1].size(), end.size())),
              end);
  }
  std::sort(cnonces.begin(), cnonces.end());
  EXPECT_EQ(std::unique(cnonces.begin(), cnonces.end()), cnonces.end());
}

TEST(HttpAuth, ADigestAtTheEndIsFollowedByTheEmptyLine) {
  HTTPCls http;
  SetUser(http);
  const auto requests =
      Exchange(http, {Answer("401 No", "WWW-Authenticate: Digest realm=\"r\", nonce=\"n\"\r\n"),
                      Answer("200 OK")});
  ASSERT_EQ(requests.size(), 2u);
  const std::string line = OnlyLine(requests[1], "Authorization");
  EXPECT_EQ(requests[1].substr(requests[1].find(line) + line.size()), "\r\n\r\n\r\n");
}

TEST(HttpAuth, ProxyDigestStandsOnALineOfItsOwn) {
  for (const bool withServer : {false, true})
    for (const bool withAdded : {false, true}) {
      HTTPCls http;
      http.ProxyType(ProxyBasicAuthorization);
      http.ProxyUser("pu");
      http.ProxyPassword("pp");
      if (withServer) SetUser(http);
      if (withAdded) http.AddHeader("X-A", "1");
      const auto requests = Exchange(
          http, {Answer("407 No", "Proxy-Authenticate: Digest realm=\"r\", nonce=\"n\"\r\n"),
                 Answer("200 OK")});
      ASSERT_EQ(requests.size(), 2u);
      EXPECT_EQ(OnlyLine(requests[0], "Proxy-Authorization"),
                "Proxy-Authorization: Basic cHU6cHA=");
      const std::string line = OnlyLine(requests[1], "Proxy-Authorization");
      ExpectDigest(line, "Proxy-Authorization", {"pu", "pp", "r", "n"});
      EXPECT_EQ(requests[1].substr(requests[1].find(line) + line.size()),
                std::string("\r\n") +
                    (withServer ? "Authorization: Basic dXNlcjpzZWNyZXQ=\r\n" : "") +
                    (withAdded ? "X-A: 1\r\n" : "") + "\r\n\r\n");
    }
}

TEST(HttpAuth, ProxyPipeSendsCredentialsOnceAsked) {
  HTTPCls http;
  http.ProxyType(ProxyPipe);
  http.ProxyUser("pu");
  http.ProxyPassword("pp");
  const auto requests = Exchange(
      http, {Answer("407 No", "Proxy-Authenticate: Basic realm=\"r\"\r\n"), Answer("200 OK")});
  ASSERT_EQ(requests.size(), 2u);
  EXPECT_TRUE(Lines(requests[0], "Proxy-Authorization").empty());
  EXPECT_EQ(OnlyLine(requests[1], "Proxy-Authorization"), "Proxy-Authorization: Basic cHU6cHA=");
}

TEST(HttpAuth, ProxyAndServerChallengesAreKeptApart) {
  HTTPCls http;
  SetUser(http);
  http.ProxyType(ProxyMSISAServer);
  http.ProxyUser("pu");
  http.ProxyPassword("pp");
  const auto requests =
      Exchange(http, {Answer("407 No",
                             "WWW-Authenticate: Digest realm=\"wrong\", nonce=\"wrong\"\r\n"
                             "Proxy-Authenticate: Digest realm=\"proxy\", nonce=\"pn\"\r\n"),
                      Answer("401 No",
                             "Proxy-Authenticate: Digest realm=\"wrong\", nonce=\"wrong\"\r\n"
                             "WWW-Authenticate: Digest realm=\"server\", nonce=\"sn\"\r\n"),
                      Answer("200 OK")});
  ASSERT_EQ(requests.size(), 3u);
  EXPECT_EQ(OnlyLine(requests[1], "Authorization"), "Authorization: Basic dXNlcjpzZWNyZXQ=");
  for (const std::size_t i : {1u, 2u})
    ExpectDigest(OnlyLine(requests[i], "Proxy-Authorization"), "Proxy-Authorization",
                 {"pu", "pp", "proxy", "pn"});
  ExpectDigest(OnlyLine(requests[2], "Authorization"), "Authorization",
               {"user", "secret", "server", "sn"});
}

// What a hostile challenge says must not add lines to the request.
TEST(HttpAuth, ChallengeCannotAddLines) {
  for (const char* challenge :
       {"Digest realm=\"a\rX-Evil: 1\", nonce=\"n\"", "Digest realm=\"r\", nonce=\"a\nX-Evil: 1\"",
        "Digest", "Digest ,,,=,\"", "Digest realm"}) {
    HTTPCls http;
    SetUser(http);
    const auto requests =
        Exchange(http, {Answer("401 No", "WWW-Authenticate: " + std::string(challenge) + "\r\n"),
                        Answer("200 OK")});
    for (const std::string& request : requests) {
      EXPECT_TRUE(Lines(request, "X-Evil").empty()) << request;
      EXPECT_EQ(request.find("\rX"), std::string::npos);
      EXPECT_EQ(request.find("\nX"), std::string::npos);
    }
  }
}

}  // namespace
}  // namespace netro
