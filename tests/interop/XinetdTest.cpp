// The time client against xinetd's time service, and the WHOIS client against a script that xinetd
// runs: directly and through the SOCKS proxy dante.

#include <gtest/gtest.h>
#include <netro/QueryTimeCLS.h>
#include <netro/WhoIsCls.h>
#include <unistd.h>

#include <chrono>
#include <memory>
#include <string>
#include <vector>

#include "DanteServer.h"
#include "ServerProcess.h"
#include "support/DateText.h"

namespace netro::interop {
namespace {

// Answers by the query's first word.
constexpr char kWhoIsScript[] = R"sh(
read -r query
query=$(printf %s "$query" | tr -d '\r')
case $query in
  large) seq 1 1500000 ;;
  parts) for part in 1 2 3; do printf 'part %s\r\n' $part; done ;;
  bytes) printf '\000\001\177\200\377\r\n' ;;
  nothing) ;;
  *) printf '%% about "%s"\r\n\r\n' "$query" ;;
esac
)sh";

std::string Service(const std::string& name, const std::string& port, const std::string& lines) {
  return "service " + name + "\n{\n  port = " + port +
         "\n  bind = 127.0.0.1\n  user = " + std::to_string(geteuid()) +
         "\n  instances = UNLIMITED\n  cps = 100000 1\n  log_type = FILE /dev/null\n" + lines +
         "}\n";
}

using Services = std::string (*)(const std::string& folder, const std::string& port);

std::unique_ptr<ServerProcess> StartXinetd(Services services) {
  return std::make_unique<ServerProcess>([=](const auto& folder, const auto& port) {
    WriteFile(folder + "/script", kWhoIsScript);
    WriteFile(folder + "/conf", services(folder, port));
    return std::vector{FindProgram("xinetd"), std::string("-dontfork"), std::string("-f"),
                       folder + "/conf",      std::string("-pidfile"),  folder + "/pid"};
  });
}

std::string TimeServices(const std::string&, const std::string& port) {
  return Service("time", port,
                 "  type = INTERNAL UNLISTED\n  id = time-stream\n  socket_type = stream\n"
                 "  protocol = tcp\n  wait = no\n") +
         Service("time", port,
                 "  type = INTERNAL UNLISTED\n  id = time-dgram\n  socket_type = dgram\n"
                 "  protocol = udp\n  wait = yes\n");
}

std::string WhoIsService(const std::string& folder, const std::string& port) {
  return Service("whois", port,
                 "  type = UNLISTED\n  socket_type = stream\n  protocol = tcp\n  wait = no\n"
                 "  server = /bin/sh\n  server_args = " +
                     folder + "/script\n");
}

class Xinetd : public testing::Test {
 protected:
  void Start(Services services) {
    if (FindProgram("xinetd").empty()) GTEST_SKIP() << "xinetd is not installed";
    server_ = StartXinetd(services);
    ASSERT_TRUE(server_->IsUp()) << server_->Output();
  }

  void StartProxy(DanteServer::Users users) {
    if (!DanteServer::IsInstalled()) GTEST_SKIP() << "dante-server is not installed";
    proxy_ = std::make_unique<DanteServer>(users);
    ASSERT_TRUE(proxy_->IsUp()) << proxy_->Output();
  }

  // Whether this test cannot go on.
  static bool IsOver() { return IsSkipped() || HasFatalFailure(); }

  std::unique_ptr<ServerProcess> server_;
  std::unique_ptr<DanteServer> proxy_;
};

class XinetdTime : public Xinetd {
 protected:
  void SetUp() override {
    Start(TimeServices);
    if (IsOver()) return;
    time_.Server("127.0.0.1");
    time_.Port(server_->Port());
    time_.Timeout(5);
  }

  void ExpectThisTime() {
    EXPECT_TRUE(time_.QueryTime()) << time_.LastErrMsg();
    const auto now = std::chrono::floor<std::chrono::seconds>(std::chrono::system_clock::now());
    EXPECT_NEAR((time_.DateTime() - ToDate(now)) * 86'400, 0, 2);
    EXPECT_LT(time_.SNTPRoundTripDelay(), 5);
  }

  QueryTimeCLS time_;
};

TEST_F(XinetdTime, OverUdpAndTcp) {
  for (int i = 0; i < 50; ++i)
    for (const bool udp : {true, false}) {
      time_.UseUDP(udp);
      ExpectThisTime();
    }
}

class XinetdWhoIs : public Xinetd {
 protected:
  void SetUp() override {
    Start(WhoIsService);
    if (IsOver()) return;
    who_.Timeout(10);
    host_ = "127.0.0.1:" + std::to_string(server_->Port());
  }

  WhoIsCls who_;
  std::string host_;
};

TEST_F(XinetdWhoIs, Answers) {
  std::string large;
  for (int i = 1; i <= 1'500'000; ++i) large += std::to_string(i) + "\n";
  const struct {
    std::string query, answer;
  } kCases[] = {{"name.test", "% about \"name.test\"\r\n\r\n"},
                {"-T dn,ace a\xE4.test", "% about \"-T dn,ace a\xE4.test\"\r\n\r\n"},
                {"parts", "part 1\r\npart 2\r\npart 3\r\n"},
                {"bytes", std::string("\0\1\x7F\x80\xFF\r\n", 7)},
                {"nothing", ""},
                {"large", large}};
  for (const auto& c : kCases) {
    EXPECT_TRUE(who_.WhoIs(host_, c.query)) << c.query << who_.LastErrMsg();
    EXPECT_EQ(who_.Result().size(), c.answer.size()) << c.query;
    EXPECT_TRUE(who_.Result() == c.answer) << c.query;
  }
}

}  // namespace
}  // namespace netro::interop
