// NetBIOSCls against samba's NetBIOS name server nmbd, which lives in a network namespace of its
// own; samba's client nmblookup is the measure. Needs root.

#include <gtest/gtest.h>
#include <netro/NetBIOSCls.h>

#include <regex>

#include "ServerProcess.h"
#include "tests/SystemRoot.h"
#include "tests/TwoNetworks.h"
#include "tests/peers/NodeStatusReply.h"

namespace netro::interop {
namespace {

constexpr char kAddress[] = "10.77.0.2";
// Whether somebody at that address answers a node status request.
bool Answers() {
  return !AskByHand(kAddress, 137,
                    std::string("NM\0\0\0\1\0\0\0\0\0\0", 12) + testkit::AnyNode() +
                        std::string("\0\x21\0\1", 4))
              .empty();
}

std::vector<std::string> Configure(const std::string& folder, const std::string& /*port*/) {
  std::string conf =
      "[global]\nnetbios name = NETROBOX\nworkgroup = NETROGROUP\ninterfaces = there\n"
      "bind interfaces only = yes\nlocal master = no\nnmbd:socket dir = " +
      folder + "/socket\n";
  for (const char* what : {"lock directory", "state directory", "cache directory", "pid directory",
                           "private dir", "ncalrpc dir"})
    conf += std::string(what) + " = " + folder + "\n";
  WriteFile(folder + "/conf", conf);
  return {FindProgram("nmbd"), "--foreground", "--no-process-group", "--debug-stdout",
          "--configfile=" + folder + "/conf"};
}

class Nmbd : public testing::Test {
 protected:
  void SetUp() override {
    if (FindProgram("nmbd").empty()) GTEST_SKIP() << "samba is not installed";
    if (!networks_.IsMade()) GTEST_SKIP() << "no network namespaces can be made here";
    networks_.GoThere();
    server_ = std::make_unique<ServerProcess>(Configure, [](int) { return Answers(); });
    networks_.GoHere();
    ASSERT_TRUE(server_->IsUp()) << server_->Output();
    root_.Put("etc/hosts", std::string(kAddress) + " box.test\n");
  }

  TwoNetworks networks_;
  SystemRoot root_;
  std::unique_ptr<ServerProcess> server_;
  NetBIOSCls netbios_;
};

TEST_F(Nmbd, NodeStatusIsWhatItsOwnClientSees) {
  const std::string seen =
      interop::Run({"nmblookup", "-s", server_->Folder() / "conf", "-A", kAddress});
  const std::regex name(R"(<[0-9a-f]{2}> - )"), mac(R"(MAC Address = ([-0-9A-F]+))");
  std::smatch found;
  ASSERT_TRUE(std::regex_search(seen, found, mac)) << seen;
  const auto names = std::distance(std::sregex_iterator(seen.begin(), seen.end(), name), {});
  EXPECT_GT(names, 0) << seen;

  for (int i = 0; i < 200; ++i) {
    const char* host = i % 2 == 0 ? kAddress : "box.test";
    std::int32_t error = -1;
    EXPECT_TRUE(netbios_.GetMacAddress(0, host, "-", error)) << netbios_.GetErrorText(error);
    EXPECT_EQ(error, 0);
    EXPECT_EQ(netbios_.MacAddress(), found[1]);
    EXPECT_EQ(netbios_.NameCount(), names);
  }
}

TEST_F(Nmbd, ItsMacAddressIsFoundByArp) {
  EXPECT_TRUE(netbios_.GetRemoteMACAddress(kAddress, ":"));
  EXPECT_EQ(netbios_.MacAddress(), TwoNetworks::kMacThere);
}

}  // namespace
}  // namespace netro::interop
