// The host watcher against the real world: nginx stopped and started, a cable pulled and put back
// between network namespaces. The clock makes the delays short.

#include <gtest/gtest.h>
#include <netro/MessageLoop.h>
#include <netro/WatchpostCls.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <functional>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "ServerProcess.h"
#include "platform/Clock.h"
#include "tests/EchoNetworks.h"
#include "tests/TemporaryFolder.h"
#include "tests/peers/LoopbackServer.h"

namespace netro::interop {
namespace {

using namespace std::chrono_literals;

class Watch : public testing::Test, protected WatchpostClsEvents {
 protected:
  // Hosts go down after three failures and come up after two successes.
  bool Observe(const std::string& hosts) {
    WriteFile(folder_ / "watch.ini",
              "[Settings]\nDownCycle=3\nUpCycle=2\n[DownActions]\n1=log\n"
              "[UpActions]\n1=log\n[HostNames]\n" +
                  hosts);
    post_.Events(this);
    post_.SettingsName(folder_ / "watch.ini");
    return post_.StartObservation();
  }

  // The clock moves a second at a time, but not while a round is running or nothing is observed.
  bool Until(const std::function<bool()>& done) {
    const auto limit = std::chrono::steady_clock::now() + 30s;
    while (!done()) {
      if (std::chrono::steady_clock::now() > limit) return false;
      if (post_.GetStatus() == WatchpostStarted) AdvanceClockForTests(1s);
      MessageLoop::ForThisThread().PumpMessages();
    }
    return true;
  }
  bool Probes(std::size_t host, int more) {
    if (probes_.size() <= host) probes_.resize(host + 1);
    const int target = probes_[host] + more;
    return Until([&, host] { return probes_[host] >= target; });
  }
  std::string TakeAlerts() { return std::exchange(alerts_, {}); }
  WatchedStateEnum StateOf(std::int32_t host) const { return post_.HostAt(host).State; }

  void Alert(const std::string& /*Protocol*/, std::int32_t /*Index*/, bool SuccessMsg,
             const std::string& HostName, const std::string& /*Host*/,
             const std::string& ErrorDump) override {
    alerts_ += HostName + (SuccessMsg ? " up\n" : " down: " + ErrorDump + "\n");
  }
  void Probed(std::int32_t Index) override {
    const auto host = static_cast<std::size_t>(Index);
    if (probes_.size() <= host) probes_.resize(host + 1);
    ++probes_[host];
  }

  TemporaryFolder folder_;
  WatchpostCls post_;
  std::vector<int> probes_;
  std::string alerts_;
};

// Starts nginx again and again on the port of the first time.
class SamePortNginx {
 public:
  void Start() {
    server_.emplace(
        [this](const std::string& folder, const std::string& port) {
          if (port_.empty()) port_ = port;
          WriteFile(folder + "/nginx.conf", Configuration(folder));
          return std::vector<std::string>{FindProgram("nginx"), "-e", folder + "/error.log", "-c",
                                          folder + "/nginx.conf"};
        },
        [this](int) {
          const int fd = peers::ConnectToLoopback(std::stoi(port_));
          if (fd >= 0) close(fd);
          return fd >= 0;
        });
  }
  void Stop() { server_.reset(); }
  bool IsUp() const { return server_ && server_->IsUp(); }
  std::string Output() const { return server_->Output(); }
  std::string Url() const { return "http://127.0.0.1:" + port_ + "/"; }

 private:
  std::string Configuration(const std::string& folder) const {
    std::string text = "daemon off;\nmaster_process off;\n" +
                       std::string(geteuid() == 0 ? "user root;\n" : "") + "pid " + folder +
                       "/nginx.pid;\nevents {}\nhttp {\n  access_log off;\n";
    for (const char* use : {"client_body", "proxy", "fastcgi", "uwsgi", "scgi"}) {
      text += "  " + std::string(use) + "_temp_path " + folder + ";\n";
    }
    return text + "  server {\n    listen 127.0.0.1:" + port_ +
           ";\n    location / { return 302 /there; }\n    location /broken { return 503; }\n  "
           "}\n}\n";
  }

  std::string port_;
  std::optional<ServerProcess> server_;
};

TEST_F(Watch, NginxIsStoppedAndStarted) {
  if (FindProgram("nginx").empty()) GTEST_SKIP() << "nginx is not installed";
  SamePortNginx nginx;
  nginx.Start();
  ASSERT_TRUE(nginx.IsUp()) << nginx.Output();
  ASSERT_TRUE(Observe("web=" + nginx.Url() + "|http\nbroken=" + nginx.Url() + "broken|http\n"));
  EXPECT_TRUE(Probes(0, 1) && Probes(1, 4));
  EXPECT_EQ(StateOf(0), WatchedUp);
  EXPECT_EQ(TakeAlerts(),
            "broken down: HTTP answer: HTTP/1.1 503 Service Temporarily Unavailable\n");

  nginx.Stop();
  EXPECT_TRUE(Probes(0, 2));
  EXPECT_EQ(TakeAlerts(), "") << "not before the third failure";
  EXPECT_TRUE(Probes(0, 5));
  EXPECT_EQ(TakeAlerts(),
            "web down: Connection Refused. The target machine actively refused the attempt to "
            "connect to it.\n");

  nginx.Start();
  ASSERT_TRUE(nginx.IsUp()) << nginx.Output();
  EXPECT_TRUE(Probes(0, 3));
  EXPECT_EQ(TakeAlerts(), "web up\n");
  EXPECT_TRUE(post_.StopObservation());
  EXPECT_EQ(std::ranges::count(ReadFile(folder_ / "watch.csv"), '\n'), 4);
}

TEST_F(Watch, ACableIsPulledAndPutBack) {
  const FourHosts hosts;
  if (!hosts.IsMade()) GTEST_SKIP() << "no network namespaces can be made here";
  ASSERT_TRUE(FourHosts::AwaitWay());
  ASSERT_TRUE(Observe("near=10.1.0.2|Ping\nfar=10.3.0.2|Ping\n"));
  EXPECT_TRUE(Probes(1, 2));

  ASSERT_TRUE(hosts.IpAt(hosts.R2(), "link set toB down\n"));
  EXPECT_TRUE(Probes(1, 5));
  EXPECT_EQ(TakeAlerts(), "far down: Destination Network Not Reachable\n");
  EXPECT_EQ(StateOf(0), WatchedUp) << "of this side";

  ASSERT_TRUE(hosts.IpAt(hosts.R2(), "link set toB up\n"));
  EXPECT_TRUE(Until([&] { return StateOf(1) == WatchedUp; }));
  EXPECT_EQ(TakeAlerts(), "far up\n");
}

}  // namespace
}  // namespace netro::interop
