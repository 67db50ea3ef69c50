#include <netro/DNSCLS.h>
#include <netro/FindDNSCLS.h>
#include <netro/QueryDNSCLS.h>
#include <netro/SocketCls.h>
#include <netro/testkit/DnsReply.h>
#include <netro/testkit/DnsServer.h>

#include "Scenario.h"
#include "Servers.h"

namespace netro::torture {
namespace {

// Behind the name of the question.
int TypeOf(const std::string& query) {
  const std::size_t end = query.find('\0', 12);
  return static_cast<unsigned char>(query.at(end + 2));
}

std::string Host(const std::string& name) {
  return testkit::dns::Record(testkit::dns::Name(name), TYPE_A, testkit::dns::Octets({127, 0, 0, 1}));
}

testkit::DnsServer::Replies Know(const std::string& query) {
  using namespace testkit::dns;
  testkit::DnsReply reply(query);
  const std::string soa = Record(Name("test"), TYPE_SOA, Soa());
  switch (TypeOf(query)) {
    case TYPE_AXFR:
      return {reply.Answer(soa).Answer(Host("h1.test")).Answer(soa).Bytes()};
    case TYPE_MX:
      return {reply.Answer(Record(kQuestion, TYPE_MX, U16(10) + Name("mx.test"))).Bytes()};
    case TYPE_A:
      return {reply.Answer(Record(kQuestion, TYPE_A, Octets({127, 0, 0, 1}))).Bytes()};
    default:
      return {reply.Bytes()};
  }
}

testkit::DnsServer& Server() {
  static auto& server = *new testkit::DnsServer(Know);
  return server;
}

Scenario Query(const std::string& name, QueryEnum type, bool udp) {
  const auto prepare = [=](World& world, QueryDNSCLS& dns) {
    dns.DNSServer("127.0.0.1");
    dns.DNSPort(udp ? Server().Port() : world.Via(Server().Port()));
    dns.Domain("test");
    dns.QueryType(type);
    dns.UseUDP(udp);
    dns.RetryCount(2);
  };
  return Make<QueryDNSCLS>(
      name, prepare,
      [type](QueryDNSCLS& dns) { return type == TYPE_AXFR ? dns.QueryZone() : dns.QueryDNS(); },
      [](QueryDNSCLS& dns, std::int32_t error) {
        return Told(error == 0, dns.CountAN() > 0, error);
      });
}

}  // namespace

std::string NameServerUrl() { return "127.0.0.1:" + std::to_string(Server().Port()); }
int NameServerPort() { return Server().Port(); }

std::vector<Scenario> NameScenarios() {
  return {
      Query("QueryDNS over UDP", TYPE_MX, true),
      Query("QueryDNS over TCP", TYPE_MX, false),
      Query("QueryZone", TYPE_AXFR, false),
      Make<SocketCls>(
          "DNSLookup", [](World&, SocketCls& socket) { socket.DNSURL(NameServerUrl()); },
          [](SocketCls& socket) {
            socket.ClearDNSCache();
            return socket.DNSLookup("www.test");
          },
          [](SocketCls& socket, const std::string& address) {
            return Told(!address.empty(), address == "127.0.0.1", socket.DNSLastErr());
          }),
      Alone(Make<FindDNSCLS>(
          "FindDNS", [](World&, FindDNSCLS&) {},
          [](FindDNSCLS& find) {
            find.Kill();
            return find.CanUseIPHlpApi();
          },
          [](FindDNSCLS&, bool readable) { return Told(readable, true, 1); })),
  };
}

}  // namespace netro::torture
