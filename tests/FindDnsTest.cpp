// What this system is configured with: DNS servers, domain, hosts file; which servers answer.
#include <netro/FindDNSCLS.h>
#include <netro/SocketCls.h>
#include <sys/stat.h>

#include "SystemKit.h"
#include "TestKit.h"
#include "dns/ServerDiscovery.h"
#include "platform/HostsFile.h"
#include "platform/ResolverConfig.h"
#include "platform/Sockets.h"

namespace netro {
namespace {

using Texts = std::vector<std::string>;

constexpr const char* kConfig = "etc/resolv.conf";
constexpr const char* kBehindStub = "run/systemd/resolve/resolv.conf";
constexpr const char* kHosts = "etc/hosts";

TEST(ResolverConfigText, IsReadAsTheSystemReadsIt) {
  const std::tuple<std::string, Texts, std::string> cases[] = {
      {"", {}, ""},
      {"nameserver 192.0.2.2\nnameserver 192.0.2.1\nnameserver 192.0.2.2\n",
       {"192.0.2.2", "192.0.2.1", "192.0.2.2"},
       ""},
      {"nameserver\t\t192.0.2.1 \t\n", {"192.0.2.1"}, ""},
      {"nameserver 192.0.2.1\r\nsearch a.example\r\n", {"192.0.2.1"}, "a.example"},
      {"nameserver 192.0.2.1 192.0.2.2\n", {"192.0.2.1"}, ""},
      {"nameserver 192.0.2.1 # near\nnameserver 192.0.2.2;far\n", {"192.0.2.1", "192.0.2.2"}, ""},
      {"# nameserver 192.0.2.1\n;nameserver 192.0.2.2\n#\n;", {}, ""},
      {" nameserver 192.0.2.1\n", {}, ""},
      {"nameservers 192.0.2.1\nnameserver192.0.2.2\nNAMESERVER 192.0.2.3\n", {}, ""},
      {"nameserver\nnameserver \nnameserver 192.0.2.9\n", {"192.0.2.9"}, ""},
      {"nameserver 2001:DB8:0::1\nnameserver fe80::1%lo\nnameserver 192.0.2.1\n",
       {"2001:db8::1", "fe80::1%lo", "192.0.2.1"},
       ""},
      {"nameserver ::1%nowhere\nnameserver [::1]\nnameserver 2001:db8::1::\n", {}, ""},
      {"nameserver 192.0.2.256\nnameserver ns.example\nnameserver 192.0.2.1:53\n", {}, ""},
      {"nameserver 127.1\n", {"127.0.0.1"}, ""},
      {std::string("nameserver 192.0.2.1\0x\ndomain a.example\0x\n", 42),
       {"192.0.2.1"},
       "a.example"},
      {"domain a.example\n", {}, "a.example"},
      {"domain a.example\nsearch b.example c.example\n", {}, "b.example"},
      {"search b.example c.example\ndomain a.example\n", {}, "a.example"},
      {"search a.example\nsearch b.example\n", {}, "b.example"},
      {"domain a.example\nsearch\ndomain  \nsearch # none\n", {}, "a.example"},
      {"domain\ta.example.\n", {}, "a.example"},
      {"domain a.example\nsearch .\n", {}, ""},
      {"options ndots:2 nameserver 192.0.2.1\nsortlist 192.0.2.0\n\n\n", {}, ""},
  };
  for (const auto& [text, servers, domain] : cases) {
    const ResolverConfig config = ParseResolverConfig(text);
    EXPECT_EQ(config.servers, servers) << text;
    EXPECT_EQ(config.domain, domain) << text;
    EXPECT_EQ(config.search.empty() ? "" : config.search.front(), domain) << text;
    EXPECT_TRUE(config.readable);
  }
}

TEST(FindDns, TakesTheServersBehindTheLocalStub) {
  const std::string stub = "nameserver 127.0.0.53\n", other = "search b.example\n";
  const std::string one = "nameserver 192.0.2.1\n", two = "nameserver 192.0.2.2\n";
  const struct {
    std::string first;
    std::optional<std::string> second;  // the file may be missing
    Texts servers;
    std::string domain;
  } cases[] = {
      {stub + "search a.example\n", one + two, {"192.0.2.1", "192.0.2.2", ""}, "a.example"},
      {stub + "nameserver 127.0.0.54\nsearch a.example\n",
       one + other,
       {"192.0.2.1", ""},
       "b.example"},
      {stub, std::nullopt, {"127.0.0.53", ""}, ""},
      {stub, other, {"127.0.0.53", ""}, ""},
      {stub + two, one, {"127.0.0.53", "192.0.2.2", ""}, ""},
      {"nameserver 127.0.0.1\n", one, {"127.0.0.1", ""}, ""},
      {"search a.example\n", one, {""}, "a.example"},
  };
  for (const auto& c : cases) {
    SystemRoot root;
    root.Put(kConfig, c.first);
    if (c.second) root.Put(kBehindStub, *c.second);
    const FindDNSCLS find;
    EXPECT_EQ(find.Servers(), c.servers) << c.first;
    EXPECT_EQ(find.Count(), static_cast<std::int32_t>(c.servers.size()) - 1) << c.first;
    EXPECT_EQ(find.LocalDomain(), c.domain) << c.first;
  }
}

TEST(FindDns, AsksAgainWhileThereIsNoServerAndKeepsWhatItFound) {
  SystemRoot root;
  FindDNSCLS find;
  EXPECT_EQ(find.Servers(), Texts{""});
  EXPECT_EQ(find.Count(), 0);
  EXPECT_FALSE(find.CanUseIPHlpApi());
  const struct {
    const char* local;
    const char* root;  // the last two labels
  } cases[] = {{"a.b.example.net", "example.net"},
               {"example.net", "example.net"},
               {"net", "net"},
               {".net", ".net"},
               {"a..net", ".net"}};
  for (const auto& c : cases) {
    root.Put(kConfig, std::string("search ") + c.local + "\n");
    EXPECT_TRUE(find.CanUseIPHlpApi());
    EXPECT_EQ(find.LocalDomain(), c.local);
    EXPECT_EQ(find.RootDomain(), c.root);
    EXPECT_EQ(find.Servers(), Texts{""});
  }
  root.Put(kConfig, "search b.example\nnameserver 192.0.2.1\n");
  EXPECT_EQ(find.RootDomain(), "b.example");
  root.Put(kConfig, "search c.example\nnameserver 192.0.2.3\n");
  EXPECT_EQ(find.LocalDomain(), "b.example") << "found results are kept";
  EXPECT_EQ(find.Servers(), (Texts{"192.0.2.1", ""}));

  find.Kill();
  EXPECT_EQ(find.Count(), 1);
  EXPECT_EQ(find.Servers(), (Texts{"192.0.2.3", ""}));
  EXPECT_EQ(find.LocalDomain(), "c.example");
  root.Remove(kConfig);
  find.Kill();
  EXPECT_EQ(find.LocalDomain(), "");
  EXPECT_FALSE(find.CanUseIPHlpApi());
}

TEST(FindDns, IgnoresWhatIsNoFileOrTooBig) {
  SystemRoot root;
  const FindDNSCLS find;
  std::filesystem::create_directories(root.Path(kConfig));
  EXPECT_FALSE(find.CanUseIPHlpApi()) << "a folder";
  root.Remove(kConfig);
  ASSERT_TRUE(MakePipe(root.Path(kConfig)));
  EXPECT_FALSE(find.CanUseIPHlpApi()) << "a pipe that nobody writes to";
  root.Remove(kConfig);
  std::filesystem::create_symlink("/dev/zero", root.Path(kConfig));
  EXPECT_FALSE(find.CanUseIPHlpApi()) << "a device without end";
  root.Remove(kConfig);
  const std::string line = "nameserver 192.0.2.1\n";
  root.Put(kConfig, line + std::string(1 << 20, '#'));
  EXPECT_FALSE(find.CanUseIPHlpApi()) << "more than a megabyte";
  root.Put(kConfig, line + std::string((1 << 20) - line.size(), '#'));
  EXPECT_EQ(find.Count(), 1) << "a megabyte";
}

constexpr std::string_view kHostsText =
    "# 192.0.2.9 comment\n"
    "192.0.2.1\tserver.example  server Www\r\n"
    "2001:db8::1 server.example six\n"
    "::1 localhost\n"
    "\n"
    "  192.0.2.2 indented # 192.0.2.9 behind\n"
    "192.0.2.3 server.example second\n"
    "192.0.2.1 again\n"
    "192.0.2.4\n"
    "192.0.2.4 # no name\n"
    "192.0.2.4 named\n"
    "127.2 short\n"
    "nonsense 192.0.2.5 nonsense.example\n"
    "192.0.2.6 six\n"
    "192.0.2.7 last";

std::string Joined(const std::vector<IpAddress>& addresses) {
  std::string text;
  for (const IpAddress& address : addresses)
    text += (text.empty() ? "" : " ") + FormatAddress(address);
  return text;
}

TEST(HostsText, NameToAddress) {
  const struct {
    const char *name, *addresses;
  } cases[] = {
      {"server.example", "192.0.2.1 2001:db8::1 192.0.2.3"},
      {"SERVER.Example.", "192.0.2.1 2001:db8::1 192.0.2.3"},
      {"server", "192.0.2.1"},
      {"www", "192.0.2.1"},
      {"indented", "192.0.2.2"},
      {"again", "192.0.2.1"},
      {"named", "192.0.2.4"},
      {"six", "2001:db8::1 192.0.2.6"},
      {"last", "192.0.2.7"},
      {"localhost", "::1"},
  };
  for (const auto& c : cases)
    EXPECT_EQ(Joined(FindHostAddresses(kHostsText, c.name)), c.addresses) << c.name;
  for (const char* name : {"comment", "behind", "192.0.2.9", "#", "short", "nonsense.example",
                           "192.0.2.5", "serve", "server.exampl", "server.example..", ".", ""})
    EXPECT_EQ(Joined(FindHostAddresses(kHostsText, name)), "") << name;
}

TEST(HostsText, AddressToName) {
  const std::pair<const char*, const char*> cases[] = {{"192.0.2.1", "server.example"},
                                                       {"192.0.2.2", "indented"},
                                                       {"192.0.2.3", "server.example"},
                                                       {"192.0.2.4", "named"},
                                                       {"192.0.2.7", "last"},
                                                       {"2001:DB8::0:1", "server.example"},
                                                       {"192.0.2.9", ""},
                                                       {"127.0.0.2", ""},
                                                       {"192.0.2.5", ""},
                                                       {"0.0.0.0", ""}};
  for (const auto& [address, name] : cases)
    EXPECT_EQ(FindHostName(kHostsText, *ParseAddress(address)), name) << address;
}

std::string AddressOf(const std::string& name) { return Joined(HostsFileAddresses(name)); }

TEST(HostsFile, LocalhostNeedsNoFile) {
  SystemRoot root;
  const IpAddress loopback = *ParseAddress("127.0.0.1");
  EXPECT_EQ(HostsFileName(loopback), "localhost");
  EXPECT_EQ(HostsFileName(*ParseAddress("127.0.0.2")), "");
  for (const char* name : {"localhost", "LocalHost.", "printer.localhost", "a.b.LOCALHOST."})
    EXPECT_EQ(AddressOf(name), "127.0.0.1 ::1") << name;
  for (const char* name : {"notlocalhost", "localhost.example", "host", "", ".", "localhos"})
    EXPECT_EQ(AddressOf(name), "") << name;

  root.Put(kHosts, "127.0.0.1 this.example\n::1 localhost\n127.0.1.1 printer.localhost\n");
  EXPECT_EQ(HostsFileName(loopback), "this.example");
  EXPECT_EQ(AddressOf("localhost"), "::1 127.0.0.1");
  EXPECT_EQ(AddressOf("printer.localhost"), "127.0.1.1 ::1");
  EXPECT_EQ(AddressOf("this.example"), "127.0.0.1");
}

// Lists of unwanted hosts are that long; each lookup reads the file.
TEST(HostsFile, BigFilesAreReadToTheEnd) {
  SystemRoot root;
  std::string text;
  for (int i = 0; i < 100'000; ++i) text += "0.0.0.0 unwanted" + std::to_string(i) + ".example\n";
  root.Put(kHosts, text + "192.0.2.1 last.example");
  EXPECT_EQ(AddressOf("last.example"), "192.0.2.1");
  EXPECT_EQ(HostsFileName(*ParseAddress("192.0.2.1")), "last.example");
}

// The system's answers to echoes: 127.0.0.1 and 127.0.0.2 do. 0.0.0.0 does not: what is sent there
// comes back from 127.0.0.1. Where the system allows no echo, nothing is left out.
struct ServerDiscovery : testing::Test {
  void Configure(const Texts& servers) {
    std::string text;
    for (const std::string& server : servers) text += "nameserver " + server + "\n";
    root_.Put(kConfig, text);
  }
  std::string Discover() { return DiscoverServerList(CancelMark(module_, call_), complete_); }

  SystemRoot root_;
  const bool permitted_ = SocketCls().IsIPReachable("127.0.0.1");
  SocketCls socket_;  // keeps the network stack started
  std::shared_ptr<SocketModule> module_ = SocketModule::ForThread();
  std::shared_ptr<CallState> call_ = std::make_shared<CallState>();
  bool complete_ = false;
};

TEST_F(ServerDiscovery, LeavesOutTheSilent) {
  complete_ = true;
  EXPECT_EQ(Discover(), "");
  EXPECT_FALSE(complete_) << "nothing configured is asked again";
  Configure(
      {"0.0.0.0", "127.0.0.2", "::1", "127.255.255.255", "127.0.0.1", "127.0.0.2", "ff02::1"});
  EXPECT_EQ(Discover(), permitted_
                            ? "127.0.0.2,::1,127.0.0.1,127.0.0.2"
                            : "0.0.0.0,127.0.0.2,::1,127.255.255.255,127.0.0.1,127.0.0.2,ff02::1");
  EXPECT_TRUE(complete_);
  Configure(Texts(5000, "127.0.0.1"));
  EXPECT_EQ(Discover().size(), 5000 * std::string("127.0.0.1,").size() - 1);
  EXPECT_TRUE(complete_);
}

// All are asked at once; the clock of the library runs with the machine's.
TEST_F(ServerDiscovery, KeepsAllWhenNobodyAnswersForHalfASecond) {
  Configure(Texts(30, "0.0.0.0"));
  const TimePoint before = Now();
  EXPECT_EQ(Discover().size(), 30 * std::string("0.0.0.0,").size() - 1);
  EXPECT_TRUE(complete_);
  if (permitted_) {
    EXPECT_GE(Now() - before, milliseconds(450));
  }
  EXPECT_LT(Now() - before, milliseconds(7'500)) << "one after the other takes twice as long";
}

TEST_F(ServerDiscovery, CanBeEndedAndIsNotCompleteThen) {
  Configure({"0.0.0.0", "127.0.0.1"});
  const CancelMark mark(module_, call_);
  ++call_->stops;
  EXPECT_EQ(DiscoverServerList(mark, complete_), "0.0.0.0,127.0.0.1") << "ended before";
  EXPECT_FALSE(complete_);
  if (!permitted_) GTEST_SKIP() << "the system allows this program no echo";
  MessageLoop::ForThisThread().PostTask([&] { socket_.Kill(); });
  EXPECT_EQ(Discover(), "0.0.0.0,127.0.0.1") << "ended during the wait";
  EXPECT_FALSE(complete_);
  MessageLoop::ForThisThread().PostTask([] { AdvanceClockForTests(milliseconds(500)); });
  Configure({"0.0.0.0", "0.0.0.0"});
  EXPECT_EQ(Discover(), "0.0.0.0,0.0.0.0");
  EXPECT_TRUE(complete_);
}

}  // namespace
}  // namespace netro
