// The part of the tour about ICMPCls, EchoCls and NetBIOSCls. It needs no servers: loopback answers
// echoes, and the adapters are this computer's. What the system does not permit is told, and is no
// failure.

#include <netro/EchoCls.h>
#include <netro/ICMPCls.h>
#include <netro/MessageLoop.h>
#include <netro/NetBIOSCls.h>

#include <cstdint>
#include <string>

#include "terminal/EchoText.h"
#include "terminal/Stopwatch.h"
#include "tour/TourSections.h"

namespace netro::tool {
namespace {

constexpr const char* kLoopback = "127.0.0.1";
constexpr std::int32_t kManyHosts = 200;
constexpr std::int32_t kPatienceMilliseconds = 2000;

constexpr const char* kForbidden =
    "left out: the system allows this program no echo; docs/diagnostics.md names what is missing";

TourStep Ping() {
  TourStep step;
  step.title = "One echo";
  step.call = std::string("ICMPCls.PingHost(\"") + kLoopback + "\")";
  ICMPCls icmp;
  icmp.PingTimeout(kPatienceMilliseconds);
  const Stopwatch watch;
  const std::int32_t result = icmp.PingHost(kLoopback);
  step.seconds = watch.Seconds();
  if (result == kEchoForbidden) {
    step.outcome = kForbidden;
  } else if (result < 0) {
    step.outcome = "error " + std::to_string(result) + ", \"" + icmp.LastErrMsg() + "\"";
  } else {
    step.outcome = "answered after " + std::to_string(result) + " ms";
  }
  step.asExpected = result >= 0 || result == kEchoForbidden;
  return step;
}

/// Puts the hops of a trace route down as text.
class HopList : public ICMPClsEvents {
 public:
  const std::string& Text() const { return text_; }

 private:
  void Hop(const std::string& Host, std::int32_t RoundTripTime, std::int32_t Status,
           bool& /*Cancel*/) override {
    text_ += (text_.empty() ? "" : ", ") + (Host.empty() ? "*" : Host) + " after " +
             std::to_string(RoundTripTime) + " ms with status " + std::to_string(Status);
  }

  std::string text_;
};

TourStep TraceRoute() {
  TourStep step;
  step.title = "The way to a host; to loopback it is short";
  step.call = std::string("ICMPCls.TraceRt(\"") + kLoopback + "\")";
  ICMPCls icmp;
  HopList hops;
  icmp.Events(&hops);
  icmp.TRTimeout(kPatienceMilliseconds);
  icmp.TRMaxHops(1);
  const Stopwatch watch;
  const bool good = icmp.TraceRt(kLoopback);
  step.seconds = watch.Seconds();
  const bool forbidden = icmp.LastErr() == kEchoForbidden;
  step.outcome =
      forbidden ? kForbidden
      : good    ? "hops: " + hops.Text()
                : "error " + std::to_string(icmp.LastErr()) + ", \"" + icmp.LastErrMsg() + "\"";
  const bool arrived = hops.Text().starts_with(kLoopback) && hops.Text().ends_with("status 0");
  step.asExpected = forbidden || (good && arrived);
  return step;
}

/// Counts replies and ends the loop with the last one.
class ReplyCount : public EchoClsEvents {
 public:
  explicit ReplyCount(EchoCls& echo) : echo_(echo) { echo.Events(this); }
  std::int32_t Good() const { return good_; }

 private:
  void Reply(std::int32_t /*Id*/, const std::string& /*Host*/, std::int32_t /*MicroSeconds*/,
             std::int32_t Status, std::int32_t /*TTL*/) override {
    good_ += Status == 0 ? 1 : 0;
    if (echo_.Pending() == 0) MessageLoop::ForThisThread().QuitLoop();
  }

  EchoCls& echo_;
  std::int32_t good_ = 0;
};

TourStep ManyEchoes() {
  TourStep step;
  step.title = "Many hosts at once; on loopback each address is one";
  step.call = "EchoCls.Send to 127.0.0.1 ... 127.0.0." + std::to_string(kManyHosts);
  EchoCls echo;
  const ReplyCount replies(echo);
  const Stopwatch watch;
  for (std::int32_t i = 1; i <= kManyHosts; ++i) {
    echo.Send("127.0.0." + std::to_string(i), 0, 32, kPatienceMilliseconds);
  }
  if (echo.Pending() > 0) MessageLoop::ForThisThread().RunLoop();
  step.seconds = watch.Seconds();
  const bool forbidden = echo.LastErr() == kEchoForbidden;
  const bool raw = echo.SocketUsed() == EchoSocketRaw;
  step.outcome = forbidden
                     ? kForbidden
                     : std::to_string(replies.Good()) + " of " + std::to_string(kManyHosts) +
                           " have answered, through one " + (raw ? "raw" : "datagram") + " socket";
  step.asExpected = forbidden || replies.Good() == kManyHosts;
  return step;
}

TourStep OwnAdapter() {
  constexpr std::int32_t kNoAdapter = 0x23;
  TourStep step;
  step.title = "The MAC address of this computer";
  step.call = "NetBIOSCls.GetMacAddress(0, \"*\", \":\")";
  NetBIOSCls netBios;
  std::int32_t error = 0;
  const Stopwatch watch;
  const bool good = netBios.GetMacAddress(0, "*", ":", error);
  step.seconds = watch.Seconds();
  step.outcome =
      good ? netBios.MacAddress() + ", " + std::to_string(netBios.RecvSuccess()) +
                 " frames received, " + std::to_string(netBios.XmitSuccess()) + " sent"
           : "error " + std::to_string(error) + ", \"" + netBios.GetErrorText(error) + "\"";
  if (error == kNoAdapter) step.outcome += ": there is no adapter but loopback";
  step.asExpected = good || error == kNoAdapter;
  return step;
}

TourStep NoNeighbour() {
  TourStep step;
  step.title = "By ARP: loopback is no neighbour, and has no MAC address";
  step.call = std::string("NetBIOSCls.GetRemoteMACAddress(\"") + kLoopback + "\", \":\")";
  NetBIOSCls netBios;
  const Stopwatch watch;
  const bool found = netBios.GetRemoteMACAddress(kLoopback, ":");
  step.seconds = watch.Seconds();
  step.outcome = found ? netBios.MacAddress() : "false";
  step.asExpected = !found;
  return step;
}

}  // namespace

void TourDiagnostics(TourReport& report) {
  for (const auto step : {Ping, TraceRoute, ManyEchoes, OwnAdapter, NoNeighbour}) {
    report.Add(step());
  }
}

}  // namespace netro::tool
