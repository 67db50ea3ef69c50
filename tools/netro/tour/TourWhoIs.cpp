// The part of the tour about WhoIsCls, with its server: a question, an answer, a proxy.

#include <netro/WhoIsCls.h>

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

#include "terminal/Stopwatch.h"
#include "tour/TourSections.h"
#include "tour/TourServers.h"

namespace netro::tool {
namespace {

constexpr std::string_view kKnownName = "agrabah.tour";
constexpr std::string_view kKnownAnswer =
    "domain:  agrabah.tour\r\nholder:  The Sultan\r\nrefer:   whois.agrabah.tour\r\n";
constexpr std::string_view kUnknownAnswer = "% No entries found.\r\n";

/// Answers one line and closes (RFC 3912).
class WhoIsPeer : public TourPeer {
 public:
  explicit WhoIsPeer(TourJournal& journal) : TourPeer("WHOIS server", journal) {}

 private:
  void Receive() override {
    if (!input_.ends_with("\r\n")) return;
    Record(input_);
    const bool known = input_ == std::string(kKnownName) + "\r\n";
    Send(std::string(known ? kKnownAnswer : kUnknownAnswer));
    Close();
  }
};

/// What a step asks for, and what is expected of it.
struct WhoIsStep {
  const char* title;
  const char* name;
  bool throughProxy;
  std::string_view answer;
};

constexpr WhoIsStep kSteps[] = {
    {"Who owns a name", "agrabah.tour", false, kKnownAnswer},
    {"A name that nobody owns", "lamp.tour", false, kUnknownAnswer},
    {"Through a SOCKS 5 proxy, which looks up the server's name", "agrabah.tour", true,
     kKnownAnswer},
};

void SetProxy(WhoIsCls& whois, std::int32_t port) {
  whois.ProxyType(WhoIsProxySocks5Auth);
  whois.ProxyURL("127.0.0.1");
  whois.ProxyPort(port);
  whois.ProxyUser(kTourUser);
  whois.ProxyPassword(kTourPassword);
  whois.ProxyUseRemoteDNS(true);
}

TourStep Run(const WhoIsStep& step, const TourServer& server, const TourServer& proxy,
             TourJournal& journal) {
  WhoIsCls whois;
  whois.Timeout(5);
  whois.Port(server.Port());
  if (step.throughProxy) SetProxy(whois, proxy.Port());
  const std::string host = step.throughProxy ? kTourHost : "127.0.0.1";

  TourStep report;
  report.title = step.title;
  report.call =
      "WhoIs(\"" + host + "\", \"" + step.name + "\"), Port " + std::to_string(whois.Port());
  if (step.throughProxy) {
    report.call += ", through WhoIsProxySocks5Auth 127.0.0.1:" + std::to_string(proxy.Port());
  }
  const Stopwatch watch;
  const bool good = whois.WhoIs(host, step.name);
  report.seconds = watch.Seconds();
  report.outcome =
      good ? std::to_string(whois.Result().size()) + " bytes"
           : "error " + std::to_string(whois.LastErr()) + ", \"" + whois.LastErrMsg() + "\"";
  report.asExpected =
      good && whois.Result() == step.answer && journal.WasSent(std::string(step.name) + "\r\n");
  report.messages = journal.Take();
  return report;
}

}  // namespace

void TourWhoIs(TourReport& report) {
  TourJournal journal;
  const TourServer server([&journal] { return std::make_unique<WhoIsPeer>(journal); });
  const TourServer proxy(SocksProxy(journal));
  for (const WhoIsStep& step : kSteps) report.Add(Run(step, server, proxy, journal));
}

}  // namespace netro::tool
