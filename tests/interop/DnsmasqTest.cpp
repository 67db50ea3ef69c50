// Lookups of names from dnsmasq, the resolver of many small routers.

#include <gtest/gtest.h>
#include <netro/SocketCls.h>

#include <algorithm>
#include <cctype>

#include "ServerProcess.h"

namespace netro::interop {
namespace {

// It knows these records only, and refuses what it would have to ask others for.
std::vector<std::string> Command(const std::string& folder, const std::string& port) {
  WriteFile(
      folder + "/dnsmasq.conf",
      "no-resolv\nno-hosts\nlisten-address=127.0.0.1\nbind-interfaces\nlog-queries\n"
      "local=/test/\nhost-record=www.test,10.1.2.3,2001:db8::1,300\ncname=alias.test,www.test\n");
  return {FindProgram("dnsmasq"),
          "--keep-in-foreground",
          "--conf-file=" + folder + "/dnsmasq.conf",
          "--port=" + port,
          "--user=",
          "--pid-file=",
          "--log-facility=-"};
}

// How many questions of this kind, "query[a] www.test", the server's log shows. Lookups mix the
// case of the letters.
int Asked(const ServerProcess& server, const std::string& question) {
  std::string log = server.Output();
  std::ranges::transform(log, log.begin(), [](unsigned char c) { return std::tolower(c); });
  int count = 0;
  for (std::size_t at = 0; (at = log.find(question + " from ", at)) != log.npos; ++at) ++count;
  return count;
}

TEST(Dnsmasq, LookupsAreCached) {
  if (FindProgram("dnsmasq").empty()) GTEST_SKIP() << "dnsmasq-base is not installed";
  const ServerProcess server(Command);
  ASSERT_TRUE(server.IsUp()) << server.Output();
  SocketCls socket;
  socket.DNSURL("127.0.0.1:" + std::to_string(server.Port()));
  socket.ClearDNSCache();
  EXPECT_EQ(socket.DNSLookup("www.test"), "10.1.2.3");
  EXPECT_EQ(socket.DNSLastErr(), 0);
  EXPECT_EQ(socket.DNSLookup("WWW.test"), "10.1.2.3");
  EXPECT_EQ(socket.DNSLookup("10.1.2.3"), "www.test");
  EXPECT_EQ(socket.DNSLookup("10.1.2.3"), "www.test");
  EXPECT_EQ(socket.DNSLookup("alias.test"), "10.1.2.3");
  EXPECT_EQ(socket.GetDNSCacheCount(), 3);
  EXPECT_EQ(Asked(server, "query[a] www.test"), 1);
  EXPECT_EQ(Asked(server, "query[ptr] 3.2.1.10.in-addr.arpa"), 1);
  socket.ClearDNSCache();
  EXPECT_EQ(socket.DNSLookup("www.test"), "10.1.2.3");
  EXPECT_EQ(Asked(server, "query[a] www.test"), 2);
}

}  // namespace
}  // namespace netro::interop
