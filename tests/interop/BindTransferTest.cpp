// Zone transfers of the DNS client from BIND's name server: large zones in all message formats, and
// refusals.

#include <gtest/gtest.h>
#include <netro/QueryDNSCLS.h>

#include <algorithm>
#include <cstdint>
#include <string>
#include <vector>

#include "BindZones.h"
#include "Dig.h"
#include "NamedServer.h"

namespace netro::interop {
namespace {

class BindTransfer : public testing::Test {
 protected:
  void SetUp() override {
    if (!NamedServer::IsInstalled()) GTEST_SKIP() << "bind9 and bind9-dnsutils are not installed";
  }

  std::int16_t Transfer(const NamedServer& server, const std::string& zone,
                        std::int32_t type = TYPE_AXFR) {
    dns_.DNSServer("127.0.0.1");
    dns_.DNSPort(server.Port());
    dns_.Domain(zone);
    dns_.QueryType(static_cast<QueryEnum>(type));
    return dns_.QueryZone();
  }

  QueryDNSCLS dns_;
};

TEST_F(BindTransfer, Refused) {
  const NamedServer server(
      {{"closed", kZoneHead, "allow-transfer { none; };"}, {"open", kZoneHead, ""}}, "");
  ASSERT_TRUE(server.IsUp()) << server.Output();
  EXPECT_EQ(Transfer(server, "open"), 0);
  EXPECT_EQ(Transfer(server, "closed"), 5);           // refused
  EXPECT_EQ(Transfer(server, "elsewhere"), 9);        // not authoritative
  EXPECT_EQ(Transfer(server, "ns.open"), 9);          // not a zone
  EXPECT_EQ(Transfer(server, "open", TYPE_IXFR), 1);  // lacks the serial number to begin from
  EXPECT_EQ(dns_.CountAll(), 0);
}

TEST_F(BindTransfer, ThousandsOfRecordsInEachFormat) {
  for (const std::string format : {"transfer-format many-answers;", "transfer-format one-answer;",
                                   "transfer-message-size 512;", "transfer-message-size 65535;"}) {
    SCOPED_TRACE(format);
    const NamedServer server({{"hosts", HostZone(5000), ""}}, format);
    ASSERT_TRUE(server.IsUp()) << server.Output();
    const auto wanted = Dig(server.Port(), {"hosts", "AXFR"});
    ASSERT_EQ(wanted.at(0).sections[0].size(), 5004u);
    ASSERT_EQ(Transfer(server, "hosts"), 0) << dns_.LastErrMsg();
    EXPECT_EQ(dns_.EntryAN(1)->DataType(), TYPE_SOA);
    EXPECT_EQ(dns_.EntryAN(dns_.CountAN())->DataType(), TYPE_SOA);
    EXPECT_TRUE(SectionsOf(dns_) == wanted[0].sections);
    const bool oneAnswer = dns_.InBuffer().substr(6, 2) == std::string("\0\1", 2);
    EXPECT_EQ(oneAnswer, format == "transfer-format one-answer;");
  }
}

}  // namespace
}  // namespace netro::interop
