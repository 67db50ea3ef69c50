// Digest authentication against lighttpd, compared with what curl fetches.
//
// This server knows the parameter names of a Digest line in lower case only ("missing field" for
// Username), although RFC 9110 section 11.2 makes them case-insensitive. The test therefore puts a
// relay in between which lowers that one letter; everything else reaches the server as it was sent.

#include <gtest/gtest.h>
#include <netro/HTTPCls.h>
#include <unistd.h>

#include <filesystem>
#include <memory>
#include <string>

#include "ServerProcess.h"
#include "tests/peers/LoopbackServer.h"

namespace netro::interop {
namespace {

std::string Configuration(const std::string& folder, const std::string& port) {
  return "server.modules = (\"mod_auth\", \"mod_authn_file\")\n"
         "server.bind = \"127.0.0.1\"\nserver.port = " +
         port +
         "\n"
         "server.document-root = \"" +
         folder +
         "\"\n"
         "server.errorlog = \"" +
         folder +
         "/error.log\"\n"
         "mimetype.assign = (\".txt\" => \"text/plain\")\n"
         "auth.backend = \"htdigest\"\n"
         "auth.backend.htdigest.userfile = \"" +
         folder +
         "/users\"\n"
         "auth.require = (\"/private/\" => (\"method\" => \"digest\",\n"
         "  \"realm\" => \"test area\", \"require\" => \"valid-user\"))\n";
}

// Passes one request on to `port` with the user name's parameter in lower case, and the answer
// back.
class LoweringRelay {
 public:
  explicit LoweringRelay(int port)
      : server_([port](peers::Connection& client, std::size_t) {
          std::string request, answer;
          while (request.find("\r\n\r\n") == std::string::npos)
            if (!client.Read(request)) return;
          const std::size_t at = request.find("Digest Username=");
          if (at != std::string::npos) request[at + 7] = 'u';
          peers::Connection target(peers::ConnectToLoopback(port), client.StopFd());
          target.Send(request);
          target.HalfClose();
          target.ReadToEnd(answer);
          client.Send(answer);
          client.HalfClose();
          client.ReadToEnd(request);
        }) {}

  std::size_t Connections() const { return server_.Connections(); }
  std::string Url(const std::string& path) const {
    return "http://127.0.0.1:" + std::to_string(server_.Port()) + path;
  }

 private:
  peers::LoopbackServer server_;
};

class Lighttpd : public testing::Test {
 protected:
  void SetUp() override {
    const std::string program = FindProgram("lighttpd");
    if (program.empty()) GTEST_SKIP() << "lighttpd is not installed";
    server_ =
        std::make_unique<ServerProcess>([&](const std::string& folder, const std::string& port) {
          std::filesystem::create_directories(folder + "/private");
          WriteFile(folder + "/private/secret.txt", "well kept\n");
          // MD5 of "user:test area:secret"
          WriteFile(folder + "/users", "user:test area:e023e82f32d8f8f01bbc2e4c7e7077cb\n");
          WriteFile(folder + "/lighttpd.conf", Configuration(folder, port));
          return std::vector<std::string>{program, "-D", "-f", folder + "/lighttpd.conf"};
        });
    ASSERT_TRUE(server_->IsUp()) << server_->Output() << ReadFile(server_->Folder() / "error.log");
    http_.User("user");
    http_.SendAuthAfterChallenge(true);
  }

  std::unique_ptr<ServerProcess> server_;
  HTTPCls http_;
  bool timeout_ = false;
};

TEST_F(Lighttpd, DigestIsAccepted) {
  for (const QueryTypeEnum type : {QueryGet, QueryHeader})
    for (const char* path : {"/private/secret.txt", "/private/secret.txt?a=b&c=d"}) {
      SCOPED_TRACE(path);
      LoweringRelay relay(server_->Port());
      http_.QueryType(type);
      http_.URL(relay.Url(path));
      http_.Password("secret");
      const std::string answer = http_.HTTPQuery(timeout_);
      EXPECT_EQ(http_.HTTPResult(), 200) << answer;
      EXPECT_EQ(relay.Connections(), 2u);
      if (type == QueryHeader) continue;
      EXPECT_EQ(Body(answer), Curl({"--digest", "--user", "user:secret", server_->Url(path)}));
      EXPECT_EQ(Body(answer), "well kept\n");
    }
}

TEST_F(Lighttpd, AWrongPasswordIsRefusedOnce) {
  LoweringRelay relay(server_->Port());
  http_.URL(relay.Url("/private/secret.txt"));
  http_.Password("wrong");
  const std::string answer = http_.HTTPQuery(timeout_);
  EXPECT_EQ(http_.HTTPResult(), 401);
  EXPECT_EQ(relay.Connections(), 2u);
  EXPECT_EQ(Body(answer), Body(Curl({"--include", server_->Url("/private/secret.txt")})));
}

}  // namespace
}  // namespace netro::interop
