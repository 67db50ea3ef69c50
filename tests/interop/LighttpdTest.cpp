// Digest authentication (RFC 7616) against lighttpd, compared with what curl fetches.

#include <gtest/gtest.h>
#include <netro/HTTPCls.h>

#include <filesystem>

#include "ServerProcess.h"

namespace netro::interop {
namespace {

std::string Configuration(const std::string& folder, const std::string& port,
                          const std::string& algorithm) {
  return "server.modules = (\"mod_auth\", \"mod_authn_file\")\nserver.bind = \"127.0.0.1\"\n"
         "server.port = " +
         port + "\nserver.document-root = \"" + folder +
         "\"\n"
         "server.errorlog = \"" +
         folder +
         "/error.log\"\nauth.backend = \"plain\"\n"
         "mimetype.assign = (\".txt\" => \"text/plain\")\n"
         "auth.backend.plain.userfile = \"" +
         folder +
         "/users\"\n"
         "auth.require = (\"/private/\" => (\"method\" => \"digest\", \"algorithm\" => \"" +
         algorithm + "\",\n  \"realm\" => \"test area\", \"require\" => \"valid-user\"))\n";
}

class Lighttpd : public testing::TestWithParam<const char*> {
 protected:
  void SetUp() override {
    const std::string program = FindProgram("lighttpd");
    if (program.empty()) GTEST_SKIP() << "lighttpd is not installed";
    server_ =
        std::make_unique<ServerProcess>([&](const std::string& folder, const std::string& port) {
          std::filesystem::create_directories(folder + "/private");
          WriteFile(folder + "/private/secret.txt", "well kept\n");
          WriteFile(folder + "/users", "user:secret\n");
          WriteFile(folder + "/lighttpd.conf", Configuration(folder, port, GetParam()));
          return std::vector<std::string>{program, "-D", "-f", folder + "/lighttpd.conf"};
        });
    ASSERT_TRUE(server_->IsUp()) << server_->Output() << ReadFile(server_->Folder() / "error.log");
    http_.User("user");
    http_.SendAuthAfterChallenge(true);
    http_.StandardDigest(true);
  }

  std::unique_ptr<ServerProcess> server_;
  HTTPCls http_;
  bool timeout_ = false;
};

TEST_P(Lighttpd, DigestIsAccepted) {
  for (const QueryTypeEnum type : {QueryGet, QueryHeader})
    for (const char* path : {"/private/secret.txt", "/private/secret.txt?a=b&c=d"}) {
      SCOPED_TRACE(path);
      http_.QueryType(type);
      http_.URL(server_->Url(path));
      http_.Password("secret");
      const std::string answer = http_.HTTPQuery(timeout_);
      EXPECT_EQ(http_.HTTPResult(), 200) << answer;
      if (type == QueryHeader) continue;
      EXPECT_EQ(Body(answer), Curl({"--digest", "--user", "user:secret", server_->Url(path)}));
      EXPECT_EQ(Body(answer), "well kept\n");
    }
}

TEST_P(Lighttpd, AWrongPasswordIsRefused) {
  http_.URL(server_->Url("/private/secret.txt"));
  http_.Password("wrong");
  const std::string answer = http_.HTTPQuery(timeout_);
  EXPECT_EQ(http_.HTTPResult(), 401);
  EXPECT_EQ(Body(answer), Body(Curl({"--include", server_->Url("/private/secret.txt")})));
}

INSTANTIATE_TEST_SUITE_P(Algorithms, Lighttpd, testing::Values("MD5", "SHA-256", "MD5|SHA-256"));

}  // namespace
}  // namespace netro::interop
