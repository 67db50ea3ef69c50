// What a host with addresses of both families calls its own, in a network namespace.
#include <netro/SocketCls.h>

#include "EchoNetworks.h"
#include "TestKit.h"

namespace netro {
namespace {

using Texts = std::vector<std::string>;

TEST(HostHelpers, IPsAreOfTheFamiliesThatThePreferenceHas) {
  const OwnNetwork network;
  if (!network.IsMade()) GTEST_SKIP() << "no network namespaces can be made here";
  ASSERT_TRUE(OwnNetwork::Ip("addr add 192.0.2.1/24 dev lo\naddr add fd00::1/64 dev lo\n"));
  const std::pair<AddressPreferenceEnum, Texts> cases[] = {
      {preferIPv4, {"192.0.2.1", "127.0.0.1"}},
      {preferIPv6, {"fd00::1", "::1", "192.0.2.1", "127.0.0.1"}},
      {onlyIPv4, {"192.0.2.1", "127.0.0.1"}},
      {onlyIPv6, {"fd00::1", "::1"}}};
  for (const auto& [preference, ips] : cases) {
    SocketCls socket;
    socket.AddressPreference(preference);
    EXPECT_EQ(socket.LocalIPs(), ips) << preference;
  }
}

}  // namespace
}  // namespace netro
