// The HTTP client against nginx: plain, chunked, HEAD, refused and very large answers, compared
// with what curl fetches.

#include <gtest/gtest.h>
#include <netro/HTTPCls.h>
#include <unistd.h>

#include <filesystem>
#include <memory>
#include <string>

#include "ServerProcess.h"

namespace netro::interop {
namespace {

constexpr std::size_t kHuge = 200u << 20;

// Lines of numbers; they repeat at a distance that fits no block size.
std::string ManyLines(std::size_t bytes) {
  std::string part;
  for (int line = 0; part.size() < 1000003; ++line) part += std::to_string(line * 7919) + "\n";
  part.resize(1000003);
  std::string text;
  while (text.size() < bytes) text += part;
  text.resize(bytes);
  return text;
}

void WriteSite(const TemporaryFolder& folder) {
  std::filesystem::create_directories(folder / "www/private");
  WriteFile(folder / "www/plain.txt", ManyLines(70000));
  WriteFile(folder / "www/empty.txt", "");
  WriteFile(folder / "www/image.png", std::string("\x89PNG\r\n\x1a\n\0\r\n\r\n", 13));
  WriteFile(folder / "www/small.html", "<p><!--#echo var=\"x\" default=\"y\"--></p>\n");
  WriteFile(folder / "www/large.html", ManyLines(3u << 20) + "<!--#echo var=\"x\" -->");
  WriteFile(folder / "www/private/secret.txt", "well kept\n");
  WriteFile(folder / "users", "user:{PLAIN}secret\n");
}

std::string Configuration(const std::string& folder, const std::string& port) {
  return "daemon off;\nmaster_process off;\n" + std::string(geteuid() == 0 ? "user root;\n" : "") +
         "pid " + folder + "/nginx.pid;\nerror_log " + folder + "/error.log;\nevents {}\n" +
         "http {\n  access_log off;\n" +
         "  types { text/plain txt; text/html html; image/png png; application/x-raw bin; }\n" +
         "  client_body_temp_path " + folder + ";\n  proxy_temp_path " + folder + ";\n" +
         "  fastcgi_temp_path " + folder + ";\n  uwsgi_temp_path " + folder + ";\n" +
         "  scgi_temp_path " + folder + ";\n  server {\n    listen 127.0.0.1:" + port + ";\n" +
         "    root " + folder + "/www;\n" + "    location ~ [.]html$ { ssi on; }\n" +
         "    location = /nothing { return 444; }\n" +
         "    location /private/ { auth_basic \"test area\"; auth_basic_user_file " + folder +
         "/users; }\n  }\n}\n";
}

class Nginx : public testing::Test {
 protected:
  static void SetUpTestSuite() {
    const std::string program = FindProgram("nginx");
    if (program.empty()) return;
    server_ =
        std::make_unique<ServerProcess>([&](const std::string& folder, const std::string& port) {
          WriteFile(folder + "/nginx.conf", Configuration(folder, port));
          return std::vector<std::string>{program, "-e", folder + "/error.log", "-c",
                                          folder + "/nginx.conf"};
        });
    WriteSite(server_->Folder());
  }
  static void TearDownTestSuite() { server_.reset(); }

  void SetUp() override {
    if (!server_) GTEST_SKIP() << "nginx is not installed";
    ASSERT_TRUE(server_->IsUp()) << server_->Output();
  }

  std::string Query(const std::string& path) {
    http_.URL(server_->Url(path));
    return http_.HTTPQuery(timeout_);
  }

  void ExpectAsCurl(const std::string& path, std::vector<std::string> curlOptions = {}) {
    SCOPED_TRACE(path);
    const std::string answer = Query(path);
    curlOptions.insert(curlOptions.end(), {"--include", server_->Url(path)});
    const std::string wanted = Curl(curlOptions);
    EXPECT_EQ(http_.LastErr(), 0) << answer;
    EXPECT_EQ(StableHeader(answer), StableHeader(wanted));
    const std::string body = http_.SaveAsFile() ? ReadFile(http_.Filename()) : Body(answer);
    EXPECT_EQ(body.size(), Body(wanted).size());
    EXPECT_TRUE(body == Body(wanted));
    EXPECT_EQ(http_.BodyLen(), static_cast<double>(body.size()));
    if (http_.SaveAsFile()) unlink(http_.Filename().c_str());
  }

  static std::unique_ptr<ServerProcess> server_;
  HTTPCls http_;
  bool timeout_ = false;
};
std::unique_ptr<ServerProcess> Nginx::server_;

TEST_F(Nginx, PlainChunkedAndBinaryAnswers) {
  for (const char* path : {"/plain.txt", "/empty.txt", "/small.html", "/large.html", "/image.png",
                           "/plain.txt?a=b&c=%20"})
    ExpectAsCurl(path);
}

TEST_F(Nginx, KeepsTheChunkFramingWhenAsked) {
  http_.RemoveChunkHeader(false);
  ExpectAsCurl("/small.html", {"--raw"});
  ExpectAsCurl("/large.html", {"--raw"});
}

TEST_F(Nginx, RefusedAnswers) {
  ExpectAsCurl("/missing.txt");
  EXPECT_EQ(http_.HTTPResult(), 404);
  EXPECT_EQ(http_.HTTPResultMsg(), "Not Found");
  ExpectAsCurl("/private/secret.txt");
  EXPECT_EQ(http_.HTTPResult(), 401);
}

TEST_F(Nginx, Head) {
  http_.QueryType(QueryHeader);
  for (const char* path : {"/plain.txt", "/small.html", "/image.png"}) {
    EXPECT_EQ(StableHeader(Query(path)), StableHeader(Curl({"--head", server_->Url(path)})));
    EXPECT_EQ(http_.LastErr(), 0);
    EXPECT_EQ(http_.BodyLen(), 0);
    if (http_.SaveAsFile()) unlink(http_.Filename().c_str());
  }
}

TEST_F(Nginx, BasicAuthentication) {
  http_.User("user");
  http_.Password("secret");
  http_.SendAuthAfterChallenge(true);
  ExpectAsCurl("/private/secret.txt", {"--user", "user:secret"});
  EXPECT_EQ(http_.HTTPResult(), 200);
  http_.Password("wrong");
  ExpectAsCurl("/private/secret.txt", {"--user", "user:wrong"});
  EXPECT_EQ(http_.HTTPResult(), 401);
}

TEST_F(Nginx, HugeAnswerIntoAFile) {
  const TemporaryFolder& folder = server_->Folder();
  WriteFile(folder / "www/huge.bin", ManyLines(kHuge));
  http_.Filename(folder / "saved.bin");
  const std::string answer = Query("/huge.bin");
  ASSERT_EQ(http_.LastErr(), 0) << answer;
  EXPECT_EQ(Body(answer), "");
  EXPECT_EQ(http_.BodyLen(), static_cast<double>(kHuge));
  Curl({"--output", folder / "curl.bin", server_->Url("/huge.bin")});
  EXPECT_TRUE(ReadFile(http_.Filename()) == ReadFile(folder / "curl.bin"));
}

}  // namespace
}  // namespace netro::interop
