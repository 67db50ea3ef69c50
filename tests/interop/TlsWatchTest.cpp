// The kinds of probes against real servers: pages over TLS with a certificate that runs out, the
// names of a DNS server, the banner of an SSH server.

#include <gtest/gtest.h>
#include <netro/MessageLoop.h>
#include <netro/WatchpostCls.h>

#include <chrono>
#include <filesystem>
#include <string>
#include <vector>

#include "ServerProcess.h"
#include "TlsNginx.h"
#include "tests/TemporaryFolder.h"
#include "tests/TlsTestKit.h"

namespace netro::interop {
namespace {

std::vector<std::string> ConfigureDnsmasq(const std::string& folder, const std::string& port) {
  WriteFile(folder + "/dnsmasq.conf", "");
  return {FindProgram("dnsmasq"),
          "--keep-in-foreground",
          "--conf-file=" + folder + "/dnsmasq.conf",
          "--no-resolv",
          "--no-hosts",
          "--port=" + port,
          "--listen-address=127.0.0.1",
          "--bind-interfaces",
          "--user=",
          "--pid-file=",
          "--local=/test/",
          "--host-record=www.test,192.0.2.1",
          "--host-record=six.test,2001:db8::1",
          "--cname=alias.test,www.test",
          "--txt-record=text.test,none"};
}

std::vector<std::string> ConfigureSsh(const std::string& folder, const std::string& port) {
  Run({FindProgram("ssh-keygen"), "-q", "-t", "ed25519", "-N", "", "-f", folder + "/key"});
  WriteFile(folder + "/sshd.conf", "");
  std::error_code ignored;
  std::filesystem::create_directories("/run/sshd", ignored);  // where root gives up its rights
  return {FindProgram("sshd"),
          "-D",
          "-e",
          "-f",
          folder + "/sshd.conf",
          "-h",
          folder + "/key",
          "-p",
          port,
          "-o",
          "ListenAddress=127.0.0.1",
          "-o",
          "PidFile=none"};
}

std::string At(const ServerProcess& server) { return std::to_string(server.Port()); }

TEST(WatchKinds, SeeWhatRealServersAre) {
  for (const char* program : {"nginx", "dnsmasq", "sshd"}) {
    if (FindProgram(program).empty()) GTEST_SKIP() << program << " is not installed";
  }
  const TlsNginx nginx;
  const ServerProcess names(ConfigureDnsmasq);
  const ServerProcess ssh(ConfigureSsh);
  ASSERT_TRUE(nginx.IsUp()) << nginx.Output();
  ASSERT_TRUE(names.IsUp()) << names.Output();
  ASSERT_TRUE(ssh.IsUp()) << ssh.Output();
  const std::string page = "https://127.0.0.1:" + std::to_string(nginx.Port());
  const struct {
    std::string host;
    std::string kind;
    std::string answer;  // its beginning
  } kCases[] = {
      {page + "/told", "https 14d \"TLSv1\"", "Success: "},
      {page + "/told", "https 60d", "Only "},
      {page + "/told", "https \"SSLv3\"", "HTTP answer without 'SSLv3'"},
      {page + "/missing", "https", "HTTP answer: HTTP/1.1 404 Not Found"},
      {"https://127.0.0.2:" + std::to_string(nginx.Port()) + "/told", "https", "TLS: Wrong Name."},
      {"127.0.0.1", "dns:www.test:" + At(names), "Success: "},
      {"127.0.0.1", "dns:six.test:" + At(names), "Success: "},
      {"127.0.0.1", "dns:alias.test:" + At(names), "Success: "},
      {"127.0.0.1", "dns:text.test:" + At(names), "DNS: No DNS Entries found."},
      {"127.0.0.1", "dns:unknown.test:" + At(names), "DNS: No DNS Entries found."},
      {"127.0.0.1", "tcp:" + At(ssh) + " \"SSH-2.0-\"", "Success: "},
      {"127.0.0.1", "tcp:" + At(ssh) + " \"220 \"", "No '220 ' in: SSH-2.0-"},
  };
  const TemporaryFolder folder;
  std::string settings = "[Settings]\nHTTPTimeout=3\n[HostNames]\n";
  for (std::size_t i = 0; i < std::size(kCases); ++i) {
    settings += "h" + std::to_string(i) + "=" + kCases[i].host + "|" + kCases[i].kind + "\n";
  }
  WriteFile(folder / "watch.ini", settings);
  WatchpostCls post;
  post.SettingsName(folder / "watch.ini");
  post.OwnReports(true);
  post.Tls(Trusting());
  ASSERT_TRUE(post.StartObservation()) << post.LastErrMsg();
  ASSERT_TRUE(post.ObserveNow());
  const auto limit = std::chrono::steady_clock::now() + std::chrono::seconds(60);
  while (post.GetStatus() == WatchpostBusy && std::chrono::steady_clock::now() < limit) {
    MessageLoop::ForThisThread().Sleep(std::chrono::milliseconds(10));
  }
  for (std::size_t i = 0; i < std::size(kCases); ++i) {
    const WatchedHost host = post.HostAt(static_cast<std::int32_t>(i));
    const bool isUp = kCases[i].answer == "Success: ";
    EXPECT_EQ(host.Failures == 0, isUp) << host.Host << host.Kind << ": " << host.LastAnswer;
    EXPECT_TRUE(host.LastAnswer.starts_with(kCases[i].answer)) << host.Kind << host.LastAnswer;
  }
}

}  // namespace
}  // namespace netro::interop
