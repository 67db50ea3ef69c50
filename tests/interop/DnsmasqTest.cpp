// The DNS client against dnsmasq, the resolver of many small routers.

#include <gtest/gtest.h>
#include <netro/QueryDNSCLS.h>
#include <netro/SocketCls.h>

#include <algorithm>
#include <cctype>

#include "ServerProcess.h"

namespace netro::interop {
namespace {

const std::vector<std::string> kRecords = {
    "--local=/test/",
    "--host-record=www.test,10.1.2.3,2001:db8::1,300",
    "--host-record=own.test,127.0.0.1",
    "--ptr-record=_http._tcp.test,own.test",
    "--srv-host=_sip._tcp.test,www.test,5060,5,40",
    "--txt-record=text.test,single",
    "--txt-record=texts.test,one,two words",
    "--cname=alias.test,www.test",
    "--naptr-record=test,100,50,s,http,,elsewhere.org",
    "--dns-rr=odd.test,65280,0A000001",
};

class Dnsmasq : public testing::Test {
 protected:
  void SetUp() override {
    if (FindProgram("dnsmasq").empty()) GTEST_SKIP() << "dnsmasq-base is not installed";
    server_ = std::make_unique<ServerProcess>(Command);
    ASSERT_TRUE(server_->IsUp()) << server_->Output();
    dns_.DNSServer("127.0.0.1");
    dns_.DNSPort(server_->Port());
    socket_.DNSURL("127.0.0.1:" + std::to_string(server_->Port()));
    socket_.ClearDNSCache();
  }

  // It knows these records only, and refuses what it would have to ask others for.
  static std::vector<std::string> Command(const std::string& folder, const std::string& port) {
    WriteFile(folder + "/dnsmasq.conf", "");
    std::vector<std::string> command = {FindProgram("dnsmasq"),
                                        "--keep-in-foreground",
                                        "--conf-file=" + folder + "/dnsmasq.conf",
                                        "--no-resolv",
                                        "--no-hosts",
                                        "--port=" + port,
                                        "--listen-address=127.0.0.1",
                                        "--bind-interfaces",
                                        "--user=",
                                        "--pid-file=",
                                        "--log-queries",
                                        "--log-facility=-"};
    command.insert(command.end(), kRecords.begin(), kRecords.end());
    return command;
  }

  // How many questions of this kind, "query[a] www.test", the server's log shows. Lookups mix the
  // case of the letters.
  int Asked(const std::string& question) const {
    std::string log = server_->Output();
    std::ranges::transform(log, log.begin(), [](unsigned char c) { return std::tolower(c); });
    int count = 0;
    for (std::size_t at = 0; (at = log.find(question + " from ", at)) != std::string::npos; ++at)
      ++count;
    return count;
  }

  std::unique_ptr<ServerProcess> server_;
  QueryDNSCLS dns_;
  SocketCls socket_;
};

TEST_F(Dnsmasq, RecordsAndFailures) {
  const struct {
    const char* name;
    std::int32_t type;
    const char* data;  // of the first record
    std::int16_t overUdp = 0, overTcp = 0;
  } kCases[] = {
      {"www.test", TYPE_A, "10.1.2.3"},
      {"www.test", TYPE_AAAA, "2001:0db8:0000:0000:0000:0000:0000:0001"},
      {"test", 35,
       "00 64 00 32 01 73 04 68 74 74 70 00 09 65 6C 73 65 77 68 65 72 65 03 6F 72 67 00"},
      {"_sip._tcp.test", TYPE_SRV, "www.test"},
      {"text.test", TYPE_TXT, "single"},
      {"texts.test", TYPE_TXT, "\"one\" \"two words\""},
      {"alias.test", TYPE_CNAME, "www.test"},
      {"alias.test", TYPE_A, "www.test"},
      {"_http._tcp.test", TYPE_PTR, "own.test"},
      {"3.2.1.10.in-addr.arpa", TYPE_PTR, "www.test"},
      {"odd.test", 65280, "0A 00 00 01"},
      // A reply without any record is a failure, also when its code is 0.
      {"unknown.test", TYPE_A, "", 59, 3},
      {"www.test", TYPE_TXT, "", 59, 22},
      {"www.elsewhere", TYPE_A, "", 59, 5},
  };
  for (const auto& c : kCases) {
    for (const bool udp : {true, false}) {
      SCOPED_TRACE(std::string(c.name) + (udp ? " over UDP" : " over TCP"));
      dns_.Domain(c.name);
      dns_.QueryType(static_cast<QueryEnum>(c.type));
      dns_.UseUDP(udp);
      EXPECT_EQ(dns_.QueryDNS(), udp ? c.overUdp : c.overTcp);
      EXPECT_EQ(dns_.CountAN() > 0 ? dns_.EntryAN(1)->Data() : "", c.data);
      EXPECT_TRUE(dns_.IsRecursionAvailable());
    }
  }
}

TEST_F(Dnsmasq, LookupsAreCached) {
  EXPECT_EQ(socket_.DNSLookup("www.test"), "10.1.2.3");
  EXPECT_EQ(socket_.DNSLastErr(), 0);
  EXPECT_EQ(socket_.DNSLookup("WWW.test"), "10.1.2.3");
  EXPECT_EQ(socket_.DNSLookup("10.1.2.3"), "www.test");
  EXPECT_EQ(socket_.DNSLookup("10.1.2.3"), "www.test");
  EXPECT_EQ(socket_.DNSLookup("alias.test"), "10.1.2.3");
  EXPECT_EQ(socket_.GetDNSCacheCount(), 3);
  EXPECT_EQ(Asked("query[a] www.test"), 1);
  EXPECT_EQ(Asked("query[ptr] 3.2.1.10.in-addr.arpa"), 1);
  socket_.ClearDNSCache();
  EXPECT_EQ(socket_.DNSLookup("www.test"), "10.1.2.3");
  EXPECT_EQ(Asked("query[a] www.test"), 2);
}

}  // namespace
}  // namespace netro::interop
