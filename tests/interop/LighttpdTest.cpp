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

class Lighttpd : public testing::TestWithParam<const char*> {};

TEST_P(Lighttpd, DigestIsAcceptedAndAWrongPasswordRefused) {
  const std::string program = FindProgram("lighttpd");
  if (program.empty()) GTEST_SKIP() << "lighttpd is not installed";
  const ServerProcess server([&](const std::string& folder, const std::string& port) {
    std::filesystem::create_directories(folder + "/private");
    WriteFile(folder + "/private/secret.txt", "well kept\n");
    WriteFile(folder + "/users", "user:secret\n");
    WriteFile(folder + "/lighttpd.conf", Configuration(folder, port, GetParam()));
    return std::vector<std::string>{program, "-D", "-f", folder + "/lighttpd.conf"};
  });
  ASSERT_TRUE(server.IsUp()) << server.Output() << ReadFile(server.Folder() / "error.log");
  HTTPCls http;
  http.User("user");
  http.SendAuthAfterChallenge(true);
  http.StandardDigest(true);
  bool timeout = false;
  for (const QueryTypeEnum type : {QueryHeader, QueryGet})
    for (const char* path : {"/private/secret.txt", "/private/secret.txt?a=b&c=d"}) {
      SCOPED_TRACE(path);
      http.QueryType(type);
      http.URL(server.Url(path));
      http.Password("secret");
      const std::string answer = http.HTTPQuery(timeout);
      EXPECT_EQ(http.HTTPResult(), 200) << answer;
      if (type == QueryHeader) continue;
      EXPECT_EQ(Body(answer), Curl({"--digest", "--user", "user:secret", server.Url(path)}));
      EXPECT_EQ(Body(answer), "well kept\n");
      http.Password("wrong");
      EXPECT_EQ(Body(http.HTTPQuery(timeout)), Body(Curl({"--include", server.Url(path)})));
      EXPECT_EQ(http.HTTPResult(), 401);
    }
}

INSTANTIATE_TEST_SUITE_P(Algorithms, Lighttpd, testing::Values("MD5", "SHA-256", "MD5|SHA-256"));

}  // namespace
}  // namespace netro::interop
