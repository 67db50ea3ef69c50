// A test of a program that resolves names: one exists, one does not, and nobody answers for a third
// one.
//
// This is a self-check: it ends with 0 when the program has told the three apart.
#include <netro/SocketCls.h>
#include <netro/testkit/Clock.h>
#include <netro/testkit/DnsServer.h>

#include <cstdio>
#include <string>

namespace {

/// The program under test.
std::string Resolve(const std::string& name, const std::string& server) {
  netro::SocketCls socket;
  socket.DNSURL(server);
  const std::string address = socket.DNSLookup(name);
  return address.empty() ? "failed: " + std::to_string(socket.DNSLastErr()) : address;
}

}  // namespace

int main() {
  using namespace netro::testkit;
  const DnsServer::Answer known = AnswersOf({{"www.test", "192.0.2.1"}});
  DnsServer server([&](const std::string& query) -> DnsServer::Replies {
    if (dns::QuestionName(query) == "silent.test") return {};
    return known(query);
  });
  const FastClock clock;  // silence takes ten seconds else
  const struct {
    const char* name;
    const char* wanted;
  } cases[] = {
      {"www.test", "192.0.2.1"}, {"none.test", "failed: 59"}, {"silent.test", "failed: 11002"}};
  int failures = 0;
  for (const auto& test : cases) {
    const std::string told = Resolve(test.name, "127.0.0.1:" + std::to_string(server.Port()));
    std::printf("%s: %s\n", test.name, told.c_str());
    failures += told != test.wanted ? 1 : 0;
  }
  return failures;
}
