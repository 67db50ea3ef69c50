// A test of a program that asks after owners, the time and a reading: of servers that answer, that
// want to be left alone, that refuse, and that say nothing at all.
//
// This is a self-check: it ends with 0 when the program has told them apart.
#include <netro/QueryTimeCLS.h>
#include <netro/UDPCls.h>
#include <netro/WhoIsCls.h>
#include <netro/testkit/Clock.h>
#include <netro/testkit/DatagramServer.h>
#include <netro/testkit/TimeServer.h>
#include <netro/testkit/WhoIsServer.h>

#include <cstdio>
#include <string>

namespace {

// The program under test.

std::string Owner(int port) {
  netro::WhoIsCls whois;
  whois.Timeout(std::chrono::seconds(30));
  const bool answered = whois.WhoIs("127.0.0.1:" + std::to_string(port), "this.test");
  return answered ? whois.Result() : "failed: " + std::to_string(whois.LastErr());
}

std::string Word(int port) {
  netro::QueryTimeCLS time;
  time.Server("127.0.0.1");
  time.Port(port);
  time.SNTPReferenceName(false);
  return time.QueryTime() ? time.SNTPKissCode() : "failed: " + std::to_string(time.LastErr());
}

std::string Reading(int port) {
  netro::UDPCls udp;
  udp.URL("127.0.0.1");
  udp.Port(port);
  std::int32_t error = 0;
  const std::string reply = udp.UDPQuery("temperature?\n", error);
  return error == 0 ? reply.substr(0, reply.size() - 1) : "failed: " + std::to_string(error);
}

}  // namespace

int main() {
  using namespace netro::testkit;
  const WhoIsServer whois([](const std::string& name) { return name + " is Jane's"; });
  const RefusingPort refusing;
  const HangingPort hanging;
  const TimeServer time({}, [](TimeReply reply) { return reply.Stratum(0).Id("RATE").Bytes(); });
  const DatagramServer sensor(
      [](const std::string& asked) { return DatagramServer::Replies{asked}; });
  const DatagramServer deaf([](const std::string&) { return DatagramServer::Replies{}; });
  const FastClock clock;  // silence takes half a minute else
  const struct {
    const char* name;
    std::string told;
    const char* wanted;
  } cases[] = {{"owner", Owner(whois.Port()), "this.test is Jane's"},
               {"refused", Owner(refusing.Port()), "failed: 10061"},
               {"silence", Owner(hanging.Port()), "failed: 10002"},
               {"left alone", Word(time.Port()), "RATE"},
               {"reading", Reading(sensor.Port()), "temperature?"},
               {"no reading", Reading(deaf.Port()), "failed: 10002"}};
  int failures = 0;
  for (const auto& test : cases) {
    std::printf("%s: %s\n", test.name, test.told.c_str());
    failures += test.told != test.wanted ? 1 : 0;
  }
  return failures;
}
