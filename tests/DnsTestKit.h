// What the tests of the DNS client share: servers, records, and a clock that runs while it waits.
#pragma once

#include <netro/QueryDNSCLS.h>
#include <netro/testkit/DnsServer.h>

#include "TestKit.h"

namespace netro {

using Replies = testkit::DnsServer::Replies;

/// Asks for `domain` at a port of 127.0.0.1, once.
inline void PointAt(QueryDNSCLS& dns, int port, QueryEnum type = TYPE_A,
                    const std::string& domain = "www.test") {
  dns.DNSServer("127.0.0.1");
  dns.DNSPort(port);
  dns.Domain(domain);
  dns.QueryType(type);
  dns.RetryCount(1);
}

/// As DNSURL has it.
inline std::string UrlOf(const testkit::DnsServer& server) {
  return "127.0.0.1:" + std::to_string(server.Port());
}

/// For DnsServer: answers nothing.
inline Replies KeepSilent(const std::string& /*query*/) { return {}; }

/// What the last query has told: number, text, and the records of each section.
inline std::string Told(const QueryDNSCLS& dns) {
  return std::to_string(dns.LastErr()) + " " + dns.LastErrMsg() + " " +
         std::to_string(dns.CountAN()) + "/" + std::to_string(dns.CountNS()) + "/" +
         std::to_string(dns.CountAR());
}

/// How a server goes on behind what it has sent.
enum class StreamEnd { kStay, kClose, kReset };

/// For DnsServer: sends `stream` on the connection, which has been asked one query.
inline testkit::DnsServer::Talk SendThen(std::function<std::string(const std::string& query)> stream,
                                       StreamEnd end, std::vector<std::size_t> cuts = {}) {
  return [=](testkit::Connection& connection, const std::string& query) {
    connection.SendCut(stream(query), cuts);
    std::string rest;
    if (end == StreamEnd::kClose) connection.HalfClose();
    if (end == StreamEnd::kReset) return connection.Reset();
    connection.ReadToEnd(rest);
  };
}

/// For DnsServer: answers with what `build` makes of an empty reply; by datagram, on the
/// connection.
using Build = std::function<void(testkit::DnsReply& reply)>;
inline std::string Built(const Build& build, const std::string& query) {
  testkit::DnsReply reply(query);
  build(reply);
  return reply.Bytes();
}
inline testkit::DnsServer::Answer Replying(const Build& build) {
  return [build](const std::string& query) -> Replies { return {Built(build, query)}; };
}
inline testkit::DnsServer::Talk ReplyingOverTcp(const Build& build) {
  return SendThen([build](const auto& query) { return testkit::dns::Framed(Built(build, query)); },
                  StreamEnd::kStay);
}

/// A server that is silent to datagrams and says this over TCP.
inline testkit::DnsServer OverTcp(std::function<std::string(const std::string& query)> stream,
                                StreamEnd end = StreamEnd::kStay,
                                std::vector<std::size_t> cuts = {}) {
  return testkit::DnsServer(KeepSilent, SendThen(std::move(stream), end, std::move(cuts)));
}

/// The record of host `number` of the zone "test", and the SOA record of that zone.
inline std::string HostRecord(int number) {
  return testkit::dns::Record(testkit::dns::Name("h" + std::to_string(number) + ".test"), TYPE_A,
                            testkit::dns::Octets({10, 0, number / 256, number % 256}));
}
inline std::string SoaRecord() {
  return testkit::dns::Record(testkit::dns::Name("test"), TYPE_SOA, testkit::dns::Soa());
}

/// An address of the name that was asked for, and an exchanger of it.
inline std::string AddressRecord(int last) {
  return testkit::dns::Record(testkit::dns::kQuestion, TYPE_A, testkit::dns::Octets({192, 0, 2, last}));
}
inline std::string MxRecord(std::size_t preference, const std::string& name) {
  return testkit::dns::Record(testkit::dns::kQuestion, TYPE_MX,
                            testkit::dns::U16(preference) + testkit::dns::Name(name));
}

/// The type that a query without EDNS asks for.
inline int TypeOf(const std::string& query) {
  return static_cast<unsigned char>(query[query.size() - 3]);
}

/// Advances the clock by a tenth of a second with each turn of the loop in which `when()` is true,
/// until the budget is spent.
class RunningClock {
 public:
  explicit RunningClock(std::function<bool()> when, milliseconds budget = std::chrono::hours(1))
      : state_(std::make_shared<State>(State{std::move(when), budget, true})) {
    Turn(state_);
  }
  ~RunningClock() { state_->running = false; }
  RunningClock(const RunningClock&) = delete;
  RunningClock& operator=(const RunningClock&) = delete;

 private:
  struct State {
    std::function<bool()> when;
    milliseconds left;
    bool running;
  };

  static void Turn(const std::shared_ptr<State>& state) {
    MessageLoop::ForThisThread().PostTask([state] {
      if (!state->running || state->left <= milliseconds(0)) return;
      Turn(state);
      if (!state->when()) return;
      AdvanceClockForTests(milliseconds(100));
      state->left -= milliseconds(100);
    });
  }

  std::shared_ptr<State> state_;
};

/// Calls `action` once, from the loop, as soon as `when()` is true.
inline void PostWhen(std::function<bool()> when, std::function<void()> action) {
  MessageLoop::ForThisThread().PostTask([when = std::move(when), action = std::move(action)] {
    if (when()) return action();
    PostWhen(when, action);
  });
}

}  // namespace netro
