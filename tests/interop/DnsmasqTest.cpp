// The DNS client and the names of all other classes against dnsmasq, the resolver of many small
// routers: its records compared with what dig shows, and lookups that only it can answer.

#include <gtest/gtest.h>
#include <netro/HTTPCls.h>
#include <netro/QueryDNSCLS.h>
#include <netro/SocketCls.h>

#include <algorithm>
#include <cctype>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "Dig.h"
#include "ServerProcess.h"
#include "tests/SocketTestKit.h"
#include "tests/peers/DnsServer.h"
#include "tests/peers/HttpServer.h"

namespace netro::interop {
namespace {

const std::vector<std::string> kRecords = {
    "--local=/test/",
    "--host-record=www.test,10.1.2.3,2001:db8::1,300",
    "--host-record=own.test,127.0.0.1",
    "--ptr-record=_http._tcp.test,own.test",
    "--mx-host=test,mail.test,10",
    "--mx-host=test,www.test,40000",
    "--srv-host=_sip._tcp.test,www.test,5060,5,40",
    "--txt-record=text.test,single",
    "--txt-record=texts.test,one,two words",
    "--cname=alias.test,www.test",
    "--naptr-record=test,100,50,s,http,,elsewhere.org",
    "--caa-record=test,0,issue,ca.test",
    "--dns-rr=odd.test,65280,0A000001",
};

class Dnsmasq : public testing::Test {
 protected:
  void SetUp() override {
    if (FindProgram("dnsmasq").empty() || FindProgram("dig").empty())
      GTEST_SKIP() << "dnsmasq-base and bind9-dnsutils are not installed";
    server_ = Start(kRecords);
    ASSERT_TRUE(server_->IsUp()) << server_->Output();
    dns_.DNSServer("127.0.0.1");
    dns_.DNSPort(server_->Port());
    socket_.DNSURL(UrlOf(server_->Port()));
    socket_.ClearDNSCache();
  }

  // It knows the given records only, and refuses what it would have to ask others for.
  static std::unique_ptr<ServerProcess> Start(const std::vector<std::string>& records) {
    return std::make_unique<ServerProcess>([&](const std::string& folder, const std::string& port) {
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
      command.insert(command.end(), records.begin(), records.end());
      return command;
    });
  }

  static std::string UrlOf(int port) { return "127.0.0.1:" + std::to_string(port); }

  std::int16_t Ask(const std::string& name, std::int32_t type, bool udp) {
    dns_.Domain(name);
    dns_.QueryType(static_cast<QueryEnum>(type));
    dns_.UseUDP(udp);
    return dns_.QueryDNS();
  }

  // How many questions of this kind, "query[a] www.test", the server's log shows. Lookups mix the
  // case of the letters.
  int Asked(const std::string& question) const { return Asked(*server_, question); }
  static int Asked(const ServerProcess& server, const std::string& question) {
    std::string log = server.Output();
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

struct Row {
  const char* name;
  std::int32_t type;
  std::int16_t overUdp;
  std::int16_t overTcp;
};

// A reply without any record is a failure, also when its code is 0.
constexpr Row kRows[] = {
    {"www.test", TYPE_A, 0, 0},
    {"www.test", TYPE_AAAA, 0, 0},
    {"test", TYPE_MX, 0, 0},
    {"_sip._tcp.test", TYPE_SRV, 0, 0},
    {"text.test", TYPE_TXT, 0, 0},
    {"texts.test", TYPE_TXT, 0, 0},
    {"alias.test", TYPE_CNAME, 0, 0},
    {"alias.test", TYPE_A, 0, 0},
    {"_http._tcp.test", TYPE_PTR, 0, 0},
    {"3.2.1.10.in-addr.arpa", TYPE_PTR, 0, 0},
    {"test", 35, 0, 0},
    {"test", 257, 0, 0},
    {"odd.test", 65280, 0, 0},
    {"unknown.test", TYPE_A, 59, 3},
    {"www.test", TYPE_TXT, 59, 22},
    {"www.elsewhere", TYPE_A, 59, 5},
};

TEST_F(Dnsmasq, RecordsAsDigShowsThem) {
  const auto expect = [&](const Row& row, const DigReply& wanted) {
    for (const bool udp : {true, false}) {
      SCOPED_TRACE(std::string(row.name) + (udp ? " over UDP" : " over TCP"));
      EXPECT_EQ(Ask(row.name, row.type, udp), udp ? row.overUdp : row.overTcp);
      EXPECT_EQ(SectionsOf(dns_), wanted.sections);
      EXPECT_EQ(dns_.CountAll() == 0, row.overUdp != 0);
      EXPECT_EQ(dns_.IsAuthoritativeAnswer(), wanted.HasFlag("aa"));
      EXPECT_EQ(dns_.IsRecursionAvailable(), wanted.HasFlag("ra"));
      EXPECT_TRUE(dns_.IsRecursionAvailable());
    }
  };
  for (const Row& row : kRows)
    expect(row, Dig(server_->Port(), {row.name, "TYPE" + std::to_string(row.type)}).at(0));
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

TEST_F(Dnsmasq, HttpQueryByName) {
  peers::HttpServer target;
  target.OnText("/page", "found by name");
  HTTPCls http;
  http.DNSURL(UrlOf(server_->Port()));
  http.URL("http://own.test:" + std::to_string(target.Port()) + "/page");
  bool timeout = false;
  EXPECT_EQ(Body(http.HTTPQuery(timeout)), "found by name");
  EXPECT_EQ(http.LastErr(), 0);
  EXPECT_EQ(target.Requests().at(0).Field("Host"), "own.test:" + std::to_string(target.Port()));
  EXPECT_EQ(Asked("query[a] own.test"), 1);
}

TEST_F(Dnsmasq, AnswersWhenTheServersBeforeItDoNot) {
  const peers::RefusingPort closed;
  peers::DnsServer silent([](const std::string&) { return peers::DnsServer::Replies(); });
  const auto refusing = Start({});
  ASSERT_TRUE(refusing->IsUp()) << refusing->Output();
  for (const int first : {closed.Port(), refusing->Port(), silent.Port()}) {
    socket_.ClearDNSCache();
    socket_.DNSURL(UrlOf(first) + "," + UrlOf(server_->Port()));
    EXPECT_EQ(socket_.DNSLookup("www.test"), "10.1.2.3");
    EXPECT_EQ(socket_.DNSLastErr(), 0);
  }
  EXPECT_EQ(Asked("query[a] www.test"), 3);
  EXPECT_EQ(silent.QueryCount(), 1u);
  EXPECT_EQ(Asked(*refusing, "query[a] www.test"), 1);
}

}  // namespace
}  // namespace netro::interop
