// The host watcher against the real world: a cable pulled and put back between network namespaces.
// The clock makes the delays short.

#include <gtest/gtest.h>
#include <netro/MessageLoop.h>
#include <netro/WatchpostCls.h>

#include "platform/Clock.h"
#include "tests/EchoNetworks.h"
#include "tests/TemporaryFolder.h"

namespace netro::interop {
namespace {

using namespace std::chrono_literals;

class Watch : public testing::Test, protected WatchpostClsEvents {
 protected:
  // The clock moves a second at a time, but not while a round is running.
  bool Until(const std::function<bool()>& done) {
    const auto limit = std::chrono::steady_clock::now() + 30s;
    while (!done()) {
      if (std::chrono::steady_clock::now() > limit) return false;
      if (post_.GetStatus() == WatchpostStarted) AdvanceClockForTests(1s);
      MessageLoop::ForThisThread().PumpMessages();
    }
    return true;
  }
  bool IsUp(std::int32_t host) const { return post_.HostAt(host).State == WatchedUp; }

  void Alert(const std::string& /*Protocol*/, std::int32_t /*Index*/, bool SuccessMsg,
             const std::string& HostName, const std::string& /*Host*/,
             const std::string& ErrorDump) override {
    alerts_ += HostName + (SuccessMsg ? " up\n" : " down: " + ErrorDump + "\n");
  }

  TemporaryFolder folder_;
  WatchpostCls post_;
  std::string alerts_;
};

TEST_F(Watch, ACableIsPulledAndPutBack) {
  const FourHosts hosts;
  if (!hosts.IsMade()) GTEST_SKIP() << "no network namespaces can be made here";
  ASSERT_TRUE(FourHosts::AwaitWay());
  WriteFile(folder_ / "watch.ini",
            "[Settings]\nDownCycle=3\nUpCycle=2\n[DownActions]\n1=log\n[UpActions]\n1=log\n"
            "[HostNames]\nnear=10.1.0.2|Ping\nfar=10.3.0.2|Ping\n");
  post_.Events(this);
  post_.SettingsName(folder_ / "watch.ini");
  ASSERT_TRUE(post_.StartObservation());
  EXPECT_TRUE(Until([&] { return IsUp(0) && IsUp(1); }));

  ASSERT_TRUE(hosts.IpAt(hosts.R2(), "link set toB down\n"));
  EXPECT_TRUE(Until([&] { return !IsUp(1); }));
  EXPECT_EQ(alerts_, "far down: Destination Network Not Reachable\n");
  EXPECT_TRUE(IsUp(0)) << "of this side";

  ASSERT_TRUE(hosts.IpAt(hosts.R2(), "link set toB up\n"));
  EXPECT_TRUE(Until([&] { return IsUp(1); }));
  EXPECT_EQ(alerts_, "far down: Destination Network Not Reachable\nfar up\n");
}

}  // namespace
}  // namespace netro::interop
