// How the HTTP client answers challenges: how often, on which connection, with which line.
#include <regex>

#include "support/DigestAuth.h"
#include "tests/HttpTestKit.h"

namespace netro {
namespace {

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
  UseProxy(http, http.ProxyType(), server.Port());
  http.URL("http://127.0.0.1:" + std::to_string(server.Port()) + "/dir/index.html?a=b");
  Query(http);
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

// The parameters of a Digest line by name, values as they stand there.
std::map<std::string, std::string> Parameters(const std::string& line) {
  std::map<std::string, std::string> values;
  const std::regex item("([A-Za-z]+)=(\"[^\"]*\"|[^,]*)(, |$)");
  const std::string text = line.substr(line.find("Digest ") + 7);
  for (std::sregex_iterator at(text.begin(), text.end(), item), end; at != end; ++at)
    values[(*at)[1]] = (*at)[2];
  return values;
}

std::string Without(const std::string& quoted) {
  return quoted.empty() ? "" : quoted.substr(1, quoted.size() - 2);
}

struct Credentials {
  std::string user, password, realm, nonce;
};

// Checks the whole line and returns the client nonce. The hash functions are checked against their
// RFCs elsewhere.
std::string ExpectDigest(const std::string& line, const std::string& field, const Credentials& c,
                         const std::string& method = "GET") {
  const std::string uri = "/dir/index.html?a=b";
  const std::string cnonce = Without(Parameters(line)["cnonce"]);
  const auto md5 = [](const std::string& text) { return DigestHash("MD5", text); };
  const std::string response = md5(md5(c.user + ":" + c.realm + ":" + c.password) + ":" + c.nonce +
                                   ":00000001:" + cnonce + ":auth:" + md5(method + ":" + uri));
  EXPECT_EQ(line, field + ": Digest Username=\"" + c.user + "\", realm=\"" + c.realm +
                      "\", qop=\"auth\", algorithm=\"MD5\", uri=\"" + uri + "\", nonce=\"" +
                      c.nonce + "\", nc=\"00000001\", cnonce=\"" + cnonce + "\", response=\"" +
                      response + "\"");
  EXPECT_NE(cnonce, "");
  return cnonce;
}

struct UserClient : HTTPCls {
  UserClient() {
    User("user");
    Password("secret");
    SendAuthAfterChallenge(true);
  }
  void Through(ProxyTypeEnum type) {
    ProxyType(type);
    ProxyUser("pu");
    ProxyPassword("pp");
  }
};

// What is sent to a server that challenges and then is content: the line of the second request.
std::string AnswerTo(HTTPCls& http, const std::string& challenge) {
  const auto requests = Exchange(http, {Answer("401 No", challenge), Answer("200 OK")});
  EXPECT_EQ(requests.size(), 2u);
  return OnlyLine(requests.back(), "Authorization");
}

TEST(HttpAuth, EachChallengeIsAnsweredAtMostOnce) {
  const std::tuple<std::vector<std::string>, bool, std::size_t, int> kCases[] = {
      {{"200 OK"}, true, 1, 200},
      {{"401 Unauthorized"}, false, 1, 401},
      {{"401 Unauthorized"}, true, 2, 401},
      {{"401 Unauthorized", "200 OK"}, true, 2, 200},
      {{"407 Proxy Authentication Required"}, false, 2, 407},
      {{"407 Proxy Authentication Required", "200 OK"}, false, 2, 200},
      {{"407 Proxy Authentication Required", "401 Unauthorized"}, false, 2, 401},
      {{"407 Proxy Authentication Required", "401 Unauthorized"}, true, 3, 401},
      {{"407 Proxy Authentication Required", "401 Unauthorized", "200 OK"}, true, 3, 200},
      // Only the status code counts.
      {{"200 Room 401", "204 No"}, true, 1, 200},
      {{"200 x4070y", "204 No"}, false, 1, 200},
      {{"200 OK\r\nX-Note: 401 407"}, true, 1, 200},
  };
  for (const ProxyTypeEnum type : {NoProxy, ProxyBasicAuthorization, ProxyMSISAServer, ProxyPipe})
    for (const auto& [statuses, afterChallenge, connections, result] : kCases) {
      SCOPED_TRACE(statuses[0] + ", proxy " + std::to_string(type));
      HTTPCls http;
      http.ProxyType(type);
      http.SendAuthAfterChallenge(afterChallenge);
      std::vector<std::string> answers;
      for (const std::string& status : statuses) answers.push_back(Answer(status));
      http.ProxyUser("pu");
      const auto requests = Exchange(http, answers);
      EXPECT_EQ(http.LastErr(), 0);
      if (type != NoProxy) {
        EXPECT_EQ(requests.size(), connections);
        EXPECT_EQ(http.HTTPResult(), result);
        continue;
      }
      // Nobody but a proxy is told the proxy's credentials, whatever it answers.
      const bool refusal = statuses[0].starts_with("407");
      EXPECT_EQ(requests.size(), refusal ? 1 : connections);
      EXPECT_EQ(http.HTTPResult(), refusal ? 407 : result);
      EXPECT_TRUE(Lines(requests[0], "Proxy-Authorization").empty());
    }
}

TEST(HttpAuth, SchemesOtherThanDigestAreAnsweredWithBasic) {
  for (const char* challenge :
       {"", "WWW-Authenticate: Basic realm=\"x\"\r\n", "WWW-Authenticate: Negotiate\r\n",
        "WWW-Authenticate:\r\n", "WWW-Authenticate: Digestive nonce=\"n\"\r\n",
        "Proxy-Authenticate: Digest realm=\"r\", nonce=\"n\"\r\n"}) {
    SCOPED_TRACE(challenge);
    UserClient http;
    const auto requests = Exchange(http, {Answer("401 No", challenge), Answer("200 OK")});
    ASSERT_EQ(requests.size(), 2u);
    EXPECT_EQ(requests[0], requests[1]);
    EXPECT_EQ(OnlyLine(requests[1], "Authorization"), "Authorization: Basic dXNlcjpzZWNyZXQ=");
  }
}

TEST(HttpAuth, DigestIsReadInEveryForm) {
  const std::tuple<const char*, const char*, const char*> kCases[] = {
      {"WWW-Authenticate: Digest realm=\"test area\", nonce=\"abc\", qop=\"auth\"", "test area",
       "abc"},
      {"www-authenticate:digest NONCE=abc,REALM=test", "test", "abc"},
      {"WWW-AUTHENTICATE:  DIGEST  realm = \"r\" ,  nonce = \"a=b==\" , opaque=\"o\"", "r",
       "a=b=="},
      {"WWW-Authenticate: Digest qop=\"auth,auth-int\", realm=\"r\", algorithm=MD5, stale=false, "
       "nonce=\"n\"",
       "r", "n"},
      // The one that it knows.
      {"WWW-Authenticate: Basic realm=\"b\", Digest realm=\"s\", nonce=\"sn\", "
       "algorithm=SHA-256\r\n"
       "WWW-Authenticate: Digest realm=\"m\", nonce=\"mn\", algorithm=MD5",
       "m", "mn"},
  };
  for (const auto& [challenge, realm, nonce] : kCases) {
    SCOPED_TRACE(challenge);
    UserClient http;
    ExpectDigest(AnswerTo(http, std::string(challenge) + "\r\n"), "Authorization",
                 {"user", "secret", realm, nonce});
  }
}

TEST(HttpAuth, DigestCoversTheMethodAndEveryClientNonceIsNew) {
  const std::string challenge = "WWW-Authenticate: Digest realm=\"r\", nonce=\"n\"\r\n";
  std::vector<std::string> cnonces;
  const std::pair<QueryTypeEnum, const char*> kCases[] = {
      {QueryGet, "GET"}, {QueryHeader, "HEAD"}, {QueryPost, "POST"}, {QueryGet, "GET"}};
  UserClient http;
  http.PostData("abc");
  http.AddHeader("X-A", "1");
  for (const auto& [type, method] : kCases) {
    http.QueryType(type);
    const auto requests = Exchange(http, {Answer("401 No", challenge), Answer("200 OK")});
    ASSERT_EQ(requests.size(), 2u);
    cnonces.push_back(ExpectDigest(OnlyLine(requests[1], "Authorization"), "Authorization",
                                   {"user", "secret", "r", "n"}, method));
    EXPECT_EQ(OnlyLine(requests[1], "X-A"), "X-A: 1");
    const std::string end =
        type == QueryPost ? "\r\nX-A: 1\r\nContent-Length: 3\r\n\r\nabc" : "\r\nX-A: 1\r\n\r\n\r\n";
    EXPECT_EQ(requests[1].substr(requests[1].size() - std::min(requests[1].size(), end.size())),
              end);
  }
  std::sort(cnonces.begin(), cnonces.end());
  EXPECT_EQ(std::unique(cnonces.begin(), cnonces.end()), cnonces.end());
}

TEST(HttpAuth, ProxyDigestStandsOnALineOfItsOwn) {
  for (const bool withServer : {false, true})
    for (const bool withAdded : {false, true}) {
      UserClient http;
      http.Through(ProxyBasicAuthorization);
      http.SendAuthAfterChallenge(withServer);
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
  UserClient http;
  http.Through(ProxyPipe);
  const auto requests = Exchange(
      http, {Answer("407 No", "Proxy-Authenticate: Basic realm=\"r\"\r\n"), Answer("200 OK")});
  ASSERT_EQ(requests.size(), 2u);
  EXPECT_TRUE(Lines(requests[0], "Proxy-Authorization").empty());
  EXPECT_EQ(OnlyLine(requests[1], "Proxy-Authorization"), "Proxy-Authorization: Basic cHU6cHA=");
}

TEST(HttpAuth, ProxyAndServerChallengesAreKeptApart) {
  UserClient http;
  http.Through(ProxyMSISAServer);
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

void ExpectResponse(std::map<std::string, std::string> line, const std::string& algorithm,
                    const std::string& qop) {
  DigestInput input;
  input.user = "user";
  input.password = "secret";
  input.realm = Without(line["realm"]);
  input.algorithm = algorithm;
  input.nonce = Without(line["nonce"]);
  input.qop = qop;
  input.nonceCount = "00000001";
  if (line.contains("cnonce")) input.clientNonce = Without(line["cnonce"]);
  input.method = "GET";
  input.uri = "/dir/index.html?a=b";
  EXPECT_EQ(line["response"], '"' + DigestCalc(input) + '"');
  EXPECT_EQ(line["uri"], '"' + input.uri + '"');
  EXPECT_EQ(line.contains("Username"), false);
  EXPECT_EQ(line.contains("nc"), !qop.empty());
  EXPECT_EQ(line["nc"], qop.empty() ? "" : "00000001");
  EXPECT_EQ(line["qop"], qop);
  EXPECT_EQ(line["algorithm"], algorithm);
}

TEST(HttpStandardDigest, AnswersTheBestChallengeWithItsOwnValues) {
  const struct {
    const char *challenges, *algorithm, *nonce, *qop, *opaque;
  } kCases[] = {
      {"WWW-Authenticate: Digest realm=\"r\", nonce=\"n\"\r\n", "", "n", "", ""},
      {"WWW-Authenticate: Digest realm=\"r\", nonce=\"n\", qop=\"auth-int, auth\", "
       "opaque=\"o p\"\r\n",
       "", "n", "auth", "\"o p\""},
      {"WWW-Authenticate: Digest realm=\"r\", nonce=\"n\", algorithm=MD5-sess, qop=auth\r\n",
       "MD5-sess", "n", "auth", ""},
      {"WWW-Authenticate: Digest realm=\"r\", nonce=\"n1\", algorithm=MD5, qop=\"auth\"\r\n"
       "WWW-Authenticate: Digest realm=\"r\", nonce=\"n2\", algorithm=\"SHA-256\", "
       "qop=\"auth\"\r\n",
       "SHA-256", "n2", "auth", ""},
      {"WWW-Authenticate: Digest realm=\"r\", nonce=\"n1\", algorithm=SHA-256-sess, qop=\"auth\", "
       "Digest realm=\"r\", nonce=\"n2\", algorithm=SHA-512-256, qop=\"auth\", Basic realm=\"x, "
       "y\"\r\n",
       "SHA-256-sess", "n1", "auth", ""},
      {"WWW-Authenticate: Negotiate abc==, Basic realm=\"b\", Digest realm=\"r\", "
       "nonce=\"n\"\r\nWWW-Authenticate: Basic realm=\"c\"\r\n",
       "", "n", "", ""},
      {"WWW-Authenticate: Digest realm=\"r\", nonce=\"n1\", algorithm=SHA-256, qop=\"auth-int\"\r\n"
       "WWW-Authenticate: Digest realm=\"r\",\r\n nonce=\"n2\", opaque=\"\"\r\n",
       "", "n2", "", "\"\""},
      {"WWW-Authenticate: Digest realm=\"r\", nonce=\"n\", qop=\"auth\", algorithm=SHA-256, "
       "userhash=true\r\n",
       "SHA-256", "n", "auth", ""},
  };
  for (const auto& c : kCases) {
    SCOPED_TRACE(c.challenges);
    UserClient http;
    http.StandardDigest(true);
    auto line = Parameters(AnswerTo(http, c.challenges));
    const bool hides = std::string(c.challenges).find("userhash") != std::string::npos;
    EXPECT_EQ(line["username"], hides ? '"' + DigestHash("SHA-256", "user:r") + '"' : "\"user\"");
    EXPECT_EQ(line["nonce"], '"' + std::string(c.nonce) + '"');
    EXPECT_EQ(line["opaque"], c.opaque);
    EXPECT_EQ(line["userhash"], hides ? "true" : "");
    ExpectResponse(line, c.algorithm, c.qop);
  }
}

TEST(HttpStandardDigest, AStaleNonceIsRenewedOnce) {
  const auto refusal = [](const std::string& nonce, const std::string& more) {
    return Answer("401 No",
                  "WWW-Authenticate: Digest realm=\"r\", nonce=\"" + nonce + "\"" + more + "\r\n");
  };
  const std::tuple<bool, std::string, std::size_t> kCases[] = {
      {true, refusal("b", ", stale=TRUE"), 3},
      {true, refusal("b", ", stale=false"), 2},
      {true, refusal("b", ""), 2},
      {false, refusal("b", ", stale=true"), 2}};
  for (const auto& [standard, second, connections] : kCases) {
    UserClient http;
    http.StandardDigest(standard);
    const auto requests = Exchange(http, {refusal("a", ""), second});
    ASSERT_EQ(requests.size(), connections);
    EXPECT_EQ(http.HTTPResult(), 401);
    const auto line = Parameters(OnlyLine(requests.back(), "Authorization"));
    EXPECT_EQ(line.at("nonce"), connections > 2 ? "\"b\"" : "\"a\"");
  }
}

// A server that knows Digest only must not get the password in clear.
TEST(HttpStandardDigest, UnknownAlgorithmsAreNotAnswered) {
  UserClient http;
  http.StandardDigest(true);
  EXPECT_EQ(Exchange(http, {Answer("401 No",
                                   "WWW-Authenticate: Digest realm=\"r\", nonce=\"n\", "
                                   "algorithm=SHA-512-256\r\n")})
                .size(),
            1u);
  EXPECT_EQ(http.HTTPResult(), 401);
}

// What a hostile challenge says must not add lines to the request.
TEST(HttpAuth, ChallengeCannotAddLines) {
  for (const char* challenge :
       {"Digest realm=\"a\rX-Evil: 1\", nonce=\"n\"", "Digest realm=\"r\", nonce=\"a\nX-Evil: 1\"",
        "Digest", "Digest ,,,=,\"", "Digest realm"}) {
    UserClient http;
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
