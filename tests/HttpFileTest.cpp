// Bodies in files: names, rights, links, and what is left behind when a query fails.

#include "tests/HttpTestKit.h"
#include "tests/SystemKit.h"

namespace netro {
namespace {

std::string Answer(const std::string& type, const std::string& body) {
  return "HTTP/1.1 200 OK\r\nContent-Type: " + type +
         "\r\nContent-Length: " + std::to_string(body.size()) + "\r\n\r\n" + body;
}

Script Playing(const std::string& answer) { return {AwaitText("\r\n\r\n"), Send(answer)}; }

struct HttpFile : testing::Test {
  std::string Query(const BytesServer& server) {
    http_.URL(LoopbackUrl(server.Port()));
    timeout_ = true;
    return http_.HTTPQuery(timeout_);
  }

  void ExpectFileError(const std::string& text) {
    EXPECT_GE(http_.LastErr(), 20000) << text;
    EXPECT_NE(text, "");
    EXPECT_FALSE(timeout_);
  }

  TemporaryFolder folder_;
  HTTPCls http_;
  bool timeout_ = false;
};

namespace fs = std::filesystem;

bool Exists(const std::string& name) { return fs::exists(fs::symlink_status(name)); }

TEST_F(HttpFile, TextGoesThereWhenAsked) {
  for (const std::string& body : {"hello"s, ""s}) {
    BytesServer server({Playing(Answer("text/plain", body))});
    http_.SaveAsFile(true);
    http_.Filename(folder_ / "out");
    WriteFile(http_.Filename(), "something longer that was there before");
    const std::string answer = Answer("text/plain", body);
    EXPECT_EQ(Query(server), answer.substr(0, answer.size() - body.size()));
    EXPECT_EQ(http_.LastErr(), 0);
    EXPECT_EQ(http_.BodyLen(), static_cast<double>(body.size()));
    EXPECT_EQ(ReadFile(folder_ / "out"), body);
    EXPECT_TRUE(HasMode(folder_ / "out", 0600));
    unlink(http_.Filename().c_str());
  }
}

TEST_F(HttpFile, AnEmptyBodyMakesNoTemporaryFile) {
  SetVariable("TMPDIR", folder_.Path().c_str());
  for (const bool asked : {false, true})
    for (const std::string& answer :
         {Answer("image/png", ""),
          "HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n0\r\n\r\n"s,
          "HTTP/1.1 200 OK\r\n\r\n"s}) {
      BytesServer server({Playing(answer)});
      http_.SaveAsFile(asked);
      EXPECT_EQ(Query(server), answer.substr(0, answer.find("\r\n\r\n") + 4));
      EXPECT_EQ(http_.LastErr(), 0);
      EXPECT_EQ(http_.SaveAsFile(), asked);
      EXPECT_EQ(http_.Filename(), "");
    }
  EXPECT_TRUE(fs::is_empty(folder_.Path()));
  SetVariable("TMPDIR", nullptr);
}

TEST_F(HttpFile, ATemporaryNameLastsUntilTheNextQuery) {
  BytesServer server({Playing(Answer("image/png", "first")), Playing(Answer("image/png", "second")),
                      Playing(Answer("text/plain", "third"))});
  Query(server);
  const std::string first = http_.Filename();
  ASSERT_TRUE(http_.SaveAsFile());
  const std::string base = fs::path(first).filename().string();
  EXPECT_EQ(base.rfind("ansel", 0), 0u) << base;
  EXPECT_EQ(fs::path(first).extension(), ".tmp");
  EXPECT_TRUE(HasMode(first, 0600));

  Query(server);
  const std::string second = http_.Filename();
  EXPECT_NE(first, second);
  EXPECT_EQ(ReadFile(first), "first");
  EXPECT_EQ(ReadFile(second), "second");

  EXPECT_EQ(Query(server), Answer("text/plain", "third"));
  EXPECT_FALSE(http_.SaveAsFile());
  EXPECT_EQ(http_.Filename(), "");
  EXPECT_EQ(ReadFile(second), "second");
  unlink(first.c_str());
  unlink(second.c_str());
}

TEST_F(HttpFile, AnOwnNameIsKept) {
  BytesServer server({Playing(Answer("image/png", "body")), Playing(Answer("text/plain", "text"))});
  http_.Filename(folder_ / "mine");
  Query(server);
  EXPECT_TRUE(http_.SaveAsFile());
  EXPECT_EQ(http_.Filename(), folder_ / "mine");
  EXPECT_EQ(ReadFile(folder_ / "mine"), "body");

  EXPECT_EQ(Query(server), Answer("text/plain", "text"));
  EXPECT_FALSE(http_.SaveAsFile());
  EXPECT_EQ(http_.Filename(), folder_ / "mine");
}

TEST_F(HttpFile, ARefusedAttemptLeavesNoTrace) {
  SetVariable("TMPDIR", folder_.Path().c_str());
  const std::string refused =
      "HTTP/1.1 401 No\r\nContent-Type: application/json\r\nContent-Length: 2\r\n\r\n{}";
  BytesServer server({Playing(refused), Playing(Answer("text/plain", "text"))});
  http_.SendAuthAfterChallenge(true);
  EXPECT_EQ(Query(server), Answer("text/plain", "text"));
  EXPECT_FALSE(http_.SaveAsFile());
  EXPECT_EQ(http_.Filename(), "");
  EXPECT_TRUE(fs::is_empty(folder_.Path()));
  SetVariable("TMPDIR", nullptr);
}

// The link is put there while the query runs, after an old file has been deleted.
TEST_F(HttpFile, LinksAreNotFollowed) {
  const std::string link = folder_ / "link";
  WriteFile(folder_ / "victim", "precious");
  for (const bool asked : {false, true})
    for (const std::string& target : {folder_ / "victim", folder_ / "missing"}) {
      testkit::HttpServer server;
      server.On("/", [link, target](const testkit::HttpRequest&) {
        fs::create_symlink(target, link);
        return Answer("image/png", "body");
      });
      http_.URL(server.Url("/"));
      http_.Filename(link);
      http_.SaveAsFile(asked);
      http_.HTTPQuery(timeout_);
      EXPECT_EQ(ReadFile(folder_ / "victim"), "precious");
      EXPECT_FALSE(Exists(folder_ / "missing"));
      EXPECT_EQ(ReadFile(link), "body");
      unlink(link.c_str());
    }
}

TEST_F(HttpFile, AFailedQueryLeavesNone) {
  const std::string half = "HTTP/1.1 200 OK\r\nContent-Length: 10\r\n\r\nhello";
  const std::string broken = "HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n5\r\nhelloX";
  for (const std::string& answer : {half, broken}) {
    BytesServer server({{AwaitText("\r\n\r\n"), Send(answer), HalfClose()}});
    http_.Filename(folder_ / "out");
    EXPECT_NE(Query(server), "");
    EXPECT_NE(http_.LastErr(), 0);
    EXPECT_FALSE(Exists(folder_ / "out"));
  }
}

TEST_F(HttpFile, CannotBeCreated) {
  BytesServer server({Playing(Answer("image/png", "body"))});
  for (const std::string& name : {folder_ / "no/such/folder", folder_.Path()}) {
    SCOPED_TRACE(name);
    http_.Filename(name);
    ExpectFileError(Query(server));
  }
  EXPECT_TRUE(fs::is_directory(folder_.Path()));
}

TEST_F(HttpFile, GrowsOverTheSizeAllowed) {
  BytesServer server({Playing(Answer("image/png", std::string(100000, 'x')))});
  http_.Filename(folder_ / "out");
  auto small = WithFileSize(5000);
  const std::string text = Query(server);
  small.reset();
  ExpectFileError(text);
  EXPECT_FALSE(Exists(folder_ / "out"));
}

}  // namespace
}  // namespace netro
