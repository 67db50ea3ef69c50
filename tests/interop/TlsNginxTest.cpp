// The HTTP client over TLS against nginx: certificates, versions, resumption, uploads, redirects,
// partial files, and many requests over few connections; answers are those that curl gets.

#include <gtest/gtest.h>
#include <netro/HTTPCls.h>
#include <netro/MessageLoop.h>
#include <netro/Task.h>

#include <algorithm>
#include <set>
#include <string>
#include <vector>

#include "TlsNginx.h"
#include "tests/TlsTestKit.h"

namespace netro::interop {
namespace {

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr int kRequests = 4'000;
#else
constexpr int kRequests = 100'000;
#endif

std::string Numbers(std::size_t bytes, std::uint32_t seed = 1) {
  std::string text;
  for (std::uint32_t n = seed; text.size() < bytes; n += 7919) text += std::to_string(n) + "\n";
  text.resize(bytes);
  return text;
}

TlsSettings WithOwnCertificate(const TemporaryFolder& folder, const testkit::TlsAuthority& issuer) {
  const testkit::Identity own = issuer.Issue();
  TlsSettings settings;
  settings.clientCertificateFile = folder / "own.pem";
  WriteFile(settings.clientCertificateFile, own.certificate + own.key);
  return settings;
}

class TlsNginxTest : public testing::Test {
 protected:
  void SetUp() override {
    if (!TlsNginx::IsInstalled()) GTEST_SKIP() << "nginx is not installed";
    server_ = std::make_unique<TlsNginx>();
    ASSERT_TRUE(server_->IsUp()) << server_->Output();
    WriteFile(server_->In("www/plain.txt"), Numbers(100'000));
    WriteFile(server_->In("www/empty.txt"), "");
    WriteFile(server_->In("www/image.png"), std::string("\x89PNG\r\n\x1a\n\0\r\n\r\n", 13));
    http_.Tls(Trusting());
    http_.KeepInMemory(true);
  }

  std::string Query(const std::string& path, Site site = Site::Good) {
    server_->Reach(http_, site);
    http_.URL(server_->Url(path));
    return http_.HTTPQuery(timeout_);
  }
  void ExpectAsCurl(const std::string& path, Site site = Site::Good,
                    std::vector<std::string> options = {}) {
    SCOPED_TRACE(path);
    const std::string answer = Query(path, site);
    const std::string wanted = server_->CurlOf(site, path, std::move(options));
    EXPECT_EQ(http_.LastErr(), 0) << answer;
    EXPECT_EQ(StableHeader(answer), StableHeader(wanted));
    EXPECT_TRUE(Body(answer) == Body(wanted)) << answer.size() << " " << wanted.size();
  }
  bool TimelineHas(std::string_view what) const {
    return std::ranges::any_of(http_.Timeline(), [&](const auto& m) { return m.What == what; });
  }

  std::unique_ptr<TlsNginx> server_;
  HTTPCls http_;
  bool timeout_ = false;
};

TEST_F(TlsNginxTest, AnswersAreAsCurlGetsThem) {
  for (const Site site : {Site::Good, Site::Tls12, Site::Tls13})
    for (const bool keep : {false, true}) {
      http_.KeepAlive(keep);
      for (const char* path : {"/plain.txt", "/empty.txt", "/image.png", "/plain.txt?a=b&c=%20",
                               "/missing", "/hop1", "/put/"})
        ExpectAsCurl(path, site);
    }
  http_.QueryType(QueryHeader);
  ExpectAsCurl("/plain.txt", Site::Good, {"--head"});
}

TEST_F(TlsNginxTest, BadCertificatesAreRefused) {
  const struct {
    Site site;
    std::int32_t error;
  } kCases[] = {{Site::Expired, tlsExpired},
                {Site::NotYetValid, tlsNotYetValid},
                {Site::WrongName, tlsWrongName},
                {Site::SelfSigned, tlsSelfSigned},
                {Site::UnknownIssuer, tlsUnknownIssuer},
                {Site::Good, 0}};
  for (const auto& c : kCases) {
    http_.Tls(Trusting());
    const std::string answer = Query("/told", c.site);
    EXPECT_EQ(http_.LastErr(), c.error) << answer;
    EXPECT_EQ(http_.HTTPResult(), c.error == 0 ? 200 : 0);
    EXPECT_EQ(answer.find("other.test") != std::string::npos, c.error == tlsWrongName) << answer;
    TlsSettings anyone;
    anyone.trustAnyoneForTestsOnly = true;
    http_.Tls(MustProvide(anyone));
    Query("/told", c.site);
    EXPECT_EQ(http_.HTTPResult(), 200) << http_.LastErr();
  }
}

TEST_F(TlsNginxTest, ClientCertificates) {
  const TemporaryFolder folder;
  ExpectAsCurl("/told", Site::ClientCertificate);
  EXPECT_EQ(http_.HTTPResult(), 400);

  TlsSettings settings = WithOwnCertificate(folder, testkit::TlsAuthority("Strange Authority"));
  http_.Tls(Trusting(settings));
  ExpectAsCurl("/told", Site::ClientCertificate, {"--cert", settings.clientCertificateFile});
  EXPECT_EQ(http_.HTTPResult(), 400);

  settings = WithOwnCertificate(folder, Authority());
  http_.Tls(Trusting(settings));
  ExpectAsCurl("/plain.txt", Site::ClientCertificate, {"--cert", settings.clientCertificateFile});
  EXPECT_NE(Query("/told", Site::ClientCertificate).find("SUCCESS"), std::string::npos);
}

TEST_F(TlsNginxTest, VersionsAndResumption) {
  const struct {
    Site site;
    const char* protocol;
  } kCases[] = {
      {Site::Tls12, "TLSv1.2"}, {Site::Tls12Tickets, "TLSv1.2"}, {Site::Tls13, "TLSv1.3"}};
  for (const auto& c : kCases) {
    http_.Tls(Trusting());
    for (const char* reused : {".", "r", "r"}) {
      const std::string answer = Query("/told", c.site);
      EXPECT_NE(answer.find(std::string(" ") + reused + " " + c.protocol), std::string::npos)
          << answer;
      EXPECT_EQ(http_.TlsInfo().protocol, c.protocol);
      EXPECT_EQ(http_.TlsInfo().resumed, *reused == 'r');
    }
  }
  TlsSettings modern;
  modern.minimumVersion = TlsVersion::Tls13;
  http_.Tls(Trusting(modern));
  const std::string answer = Query("/told", Site::Tls12);
  EXPECT_EQ(http_.LastErr(), tlsProtocolVersion) << answer;
}

TEST_F(TlsNginxTest, LongBodiesAreAnnouncedAndSent) {
  constexpr std::size_t kLength = 20'000'000;
  const std::string body = Numbers(kLength);
  WriteFile(server_->In("body"), body);
  std::size_t given = 0;
  const HTTPBodyFunction read = [&](std::span<std::uint8_t> room) {
    const std::size_t part = body.copy(reinterpret_cast<char*>(room.data()), room.size(), given);
    given += part;
    return static_cast<std::ptrdiff_t>(part);
  };
  const auto rewind = [&] { return given = 0, true; };
  enum Kind { File, Sized, Unsized };
  const struct {
    const char* method;
    Kind kind;
    const char* path;
    const char* stored;  // empty: refused before the body
  } kCases[] = {{"PUT", File, "/put/a", "www/put/a"},      {"", File, "/post/b", "www/put/b"},
                {"PUT", Sized, "/put/c", "www/put/c"},     {"PUT", Unsized, "/put/d", "www/put/d"},
                {"POST", Unsized, "/post/e", "www/put/e"}, {"PUT", File, "/moved", "www/put/moved"},
                {"PUT", Sized, "/moved", "www/put/moved"}, {"PUT", Sized, "/small/f", ""}};
  http_.MaxRedirects(1);
  for (const bool keep : {false, true})
    for (const auto& c : kCases) {
      SCOPED_TRACE(c.path + std::string(keep ? " kept" : ""));
      given = 0;
      http_.KeepAlive(keep);
      http_.Method(c.method);
      if (c.kind == File) http_.BodyFile(server_->In("body"));
      if (c.kind == Sized) http_.BodyFunction(read, kLength, rewind);
      if (c.kind == Unsized) http_.BodyFunction(read, std::nullopt, rewind);
      const std::string answer = Query(c.path);
      EXPECT_EQ(http_.LastErr(), 0) << answer;
      if (*c.stored == '\0') {
        EXPECT_EQ(http_.HTTPResult(), 413) << answer;
        EXPECT_EQ(given, 0u);
        continue;
      }
      EXPECT_EQ(http_.HTTPResult(), 201) << answer;
      EXPECT_TRUE(TimelineHas("continue"));
      EXPECT_TRUE(ReadFile(server_->In(c.stored)) == body);
      std::filesystem::remove(server_->In(c.stored));
    }
}

// Stops its query in the middle of the body.
class Stopper : public HTTPClsEvents {
 public:
  double at = 0;
  void Status(HTTPCls& http, const std::string&) override {
    if (at > 0 && http.ReceivedBytes() > at) http.Kill();
  }
};

TEST_F(TlsNginxTest, CutFilesAreContinuedUnlessTheyChanged) {
  constexpr std::size_t kLength = 5'000'000;
  Stopper stopper;
  http_.Events(&stopper);
  http_.KeepInMemory(false);
  http_.Resume(true);
  http_.SaveAsFile(true);
  for (const bool changes : {false, true}) {
    SCOPED_TRACE(changes);
    http_.Filename(server_->In("saved"));
    WriteFile(http_.Filename(), "old");
    std::string wanted = Numbers(kLength);
    WriteFile(server_->In("www/long.bin"), wanted);
    for (const double at : {1e6, 2e6}) {  // of each answer
      stopper.at = at;
      Query("/long.bin");
      EXPECT_EQ(http_.LastErr(), 9999);
      EXPECT_EQ(ReadFile(server_->In("saved")), "old");
    }
    stopper.at = 0;
    const std::string part = ReadFile(server_->In("saved.part"));
    EXPECT_GT(part.size(), 2'900'000u);
    EXPECT_TRUE(wanted.starts_with(part));
    if (changes) WriteFile(server_->In("www/long.bin"), wanted = Numbers(kLength + 1, 2));
    const std::string answer = Query("/long.bin");
    EXPECT_EQ(http_.LastErr(), 0) << answer;
    EXPECT_EQ(http_.HTTPResult(), changes ? 200 : 206);
    EXPECT_TRUE(ReadFile(server_->In("saved")) == wanted);
    const std::string range = "bytes " + std::to_string(part.size()) + "-4999999/5000000";
    EXPECT_EQ(http_.Header("Content-Range"), changes ? "" : range);
    EXPECT_FALSE(std::filesystem::exists(server_->In("saved.part")));
  }
}

TEST_F(TlsNginxTest, ManyRequestsOverEightConnections) {
  constexpr int kTasks = 8;
  const std::shared_ptr<TlsProvider> provider = Trusting();
  std::set<std::string> connections;  // by the numbers that nginx gives them
  int answers = 0;
  const auto work = [&] {
    HTTPCls http;
    http.Tls(provider);
    http.KeepAlive(true);
    server_->Reach(http, Site::Good);
    http.URL(server_->Url("/told"));
    for (int i = 0; i < kRequests / kTasks; ++i) {
      bool timeout = false;
      const std::string answer = http.HTTPQuery(timeout);
      if (http.HTTPResult() != 200) ADD_FAILURE() << http.LastErr() << " " << answer;
      if (http.HTTPResult() != 200) return;
      const std::string body = Body(answer);
      connections.insert(body.substr(0, body.find(' ')));
      ++answers;
    }
  };
  std::vector<Task> tasks;
  for (int i = 0; i < kTasks; ++i) tasks.push_back(MessageLoop::ForThisThread().StartTask(work));
  for (const Task& task : tasks) EXPECT_EQ(task.Wait(), 0);
  EXPECT_EQ(answers, kRequests);
  EXPECT_EQ(connections.size(), static_cast<std::size_t>(kTasks));
}

}  // namespace
}  // namespace netro::interop
