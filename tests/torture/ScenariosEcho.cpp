// What asks routers, neighbours and clocks: echoes, trace routes, adapters, a survey of time
// servers.
#include <netro/EchoCls.h>
#include <netro/ICMPCls.h>
#include <netro/NetBIOSCls.h>
#include <netro/TimeSurveyCls.h>
#include <netro/testkit/DatagramServer.h>
#include <netro/testkit/TimeReply.h>

#include <chrono>
#include <cstdio>
#include <memory>

#include "Scenario.h"
#include "platform/Clock.h"

namespace netro::torture {
namespace {

// A request whose answer is an event, beside one that is cancelled.
class Echoes final : private EchoClsEvents {
 public:
  explicit Echoes(AllEvents& events) : events_(events) { Renew(); }

  std::int32_t Run() {
    answers_ = 0;
    const Hurting hurting;
    const std::int32_t cancelled = echo_->Send("127.0.0.1");
    if (cancelled != 0) echo_->Cancel(cancelled);
    const std::int32_t id = echo_->Send("127.0.0.1", 0, 32, 1000);
    if (id == 0) return Told(false, false, echo_->LastErr());
    TurnUntil([this] { return !echo_ || answers_ > 0; });
    if (!echo_) return kGone;
    if (answers_ == 0) {  // a loop that may not turn; the answer would come with the memory
      echo_->Cancel(id);
      return IsLasting() ? 1 : kNoNumber;
    }
    return answers_ > 1 || echo_->Pending() > 0 ? kWrongResult : Told(status_ == 0, true, status_);
  }
  void Destroy() { echo_.reset(); }

 private:
  void Reply(std::int32_t, const std::string&, std::int32_t, std::int32_t status,
             std::int32_t) override {
    ++answers_;
    status_ = status;
    events_.LoggingStarted();
  }
  void Renew() {
    echo_ = std::make_unique<EchoCls>();
    echo_->Events(this);
  }

  AllEvents& events_;
  std::unique_ptr<EchoCls> echo_;
  int answers_ = 0;
  std::int32_t status_ = 0;
};

Scenario ManyEchoes() {
  const auto make = [](World& world) {
    const auto echoes = std::make_shared<Echoes>(world.events);
    return Subject{[=] { return echoes->Run(); }, nullptr, [=] { echoes->Destroy(); }};
  };
  return {"EchoCls", make};
}

std::string NowOf(const std::string& request) {
  const auto now = SystemTime().time_since_epoch();
  const auto whole = std::chrono::floor<std::chrono::seconds>(now);
  const auto stamp = static_cast<std::uint32_t>(whole.count() + testkit::kTimeOf1970);
  const double part = std::chrono::duration<double>(now - whole).count();
  const auto fraction = static_cast<std::uint32_t>(part * 4294967295.0);
  return testkit::TimeReply()
      .Stratum(1)
      .Precision(236)
      .Id("GPS")
      .RootDispersion(0x2000)
      .Originate(testkit::TransmitOf(request))
      .Receive(stamp, fraction)
      .Transmit(stamp, fraction)
      .Bytes();
}

std::unique_ptr<testkit::DatagramServer> Clock() {
  return testkit::ServeOnOwnAddress(
      [](const std::string& request) -> testkit::DatagramServer::Replies { return {NowOf(request)}; },
      123);
}

Scenario Survey() {
  static auto& first = *Clock().release();
  static auto& second = *Clock().release();
  return Make<TimeSurveyCls>(
      "Survey",
      [](World&, TimeSurveyCls& survey) {
        survey.Servers({first.Ip(), second.Ip()});
        survey.Samples(2);
        survey.Interval(0);
        survey.Timeout(std::int16_t{1});
      },
      [](TimeSurveyCls& survey) { return survey.Survey(); },
      [](TimeSurveyCls& survey, bool done) {
        return Told(done, survey.Bound() > 0, survey.LastErr());
      });
}

Scenario Adapter() {
  return Make<NetBIOSCls>(
      "GetMacAddress", [](World&, NetBIOSCls&) {},
      [](NetBIOSCls& netbios) {
        std::int32_t error = 0;
        return netbios.GetMacAddress(0, "", ":", error) ? 0 : error == 0 ? kNoNumber : error;
      },
      [](NetBIOSCls& netbios, std::int32_t error) {
        return Told(error == 0, netbios.MacAddress().size() == 17, error);
      });
}

bool HasAdapter() {
  std::int32_t error = 0;
  return NetBIOSCls().GetMacAddress(0, "", ":", error);
}

}  // namespace

std::vector<Scenario> EchoScenarios() {
  std::vector<Scenario> scenarios = {
      ManyEchoes(),
      Make<ICMPCls>(
          "TraceRt",
          [](World& world, ICMPCls& icmp) {
            icmp.Events(&world.events);
            icmp.TRTimeout(1000);
            icmp.TRDelay(0);
          },
          [](ICMPCls& icmp) { return icmp.TraceRt("127.0.0.1"); },
          [](ICMPCls& icmp, bool done) {
            return Told(done, icmp.TRHopCount() > 0, icmp.LastErr());
          }),
  };
  if (HasAdapter()) {
    scenarios.push_back(Adapter());
  } else {
    std::puts("left out: GetMacAddress, since this host has no adapter");
  }
  if (Clock()) {
    scenarios.push_back(Survey());
  } else {
    std::puts("left out: Survey, since port 123 of 127.0.0.0/8 may not be used");
  }
  return scenarios;
}

}  // namespace netro::torture
