// What the tests of echoes share: sinks that write down what they are told, and the kinds of
// sockets. Who is asked at kSilent says nothing: the reply comes from 127.0.0.1.
#pragma once

#include <netro/EchoCls.h>
#include <netro/ICMPCls.h>

#include "SocketTestKit.h"
#include "SystemKit.h"

namespace netro {

inline constexpr char kSilent[] = "0.0.0.0";

struct EchoSeen {
  std::int32_t id;
  std::string host;
  std::int32_t microSeconds;
  std::int32_t status;
  std::int32_t ttl;
};

/// `hook` may do anything.
class EchoSink : public EchoClsEvents {
 public:
  void Reply(std::int32_t Id, const std::string& Host, std::int32_t MicroSeconds,
             std::int32_t Status, std::int32_t TTL) override {
    seen.push_back({Id, Host, MicroSeconds, Status, TTL});
    if (hook) hook(Id);
  }
  void Answer(const EchoAnswer& answer) override {
    answers.push_back(answer);
    EchoClsEvents::Answer(answer);
  }

  std::vector<std::int32_t> Ids() const {
    std::vector<std::int32_t> ids;
    for (const EchoSeen& reply : seen) ids.push_back(reply.id);
    return ids;
  }

  std::vector<EchoSeen> seen;
  std::vector<EchoAnswer> answers;
  std::function<void(std::int32_t id)> hook;
};

struct HopSeen {
  std::string host;
  std::int32_t status;
  bool operator==(const HopSeen&) const = default;
};

class HopSink : public ICMPClsEvents {
 public:
  void Hop(const std::string& Host, std::int32_t RoundTripTime, std::int32_t Status,
           bool& Cancel) override {
    seen.push_back({Host, Status});
    sum += RoundTripTime;
    if (hook) hook(Cancel);
  }

  std::vector<HopSeen> seen;
  std::int32_t sum = 0;
  std::function<void(bool& cancel)> hook;
};

/// Those who tell their own sink.
struct EchoClient : EchoCls {
  EchoClient() { Events(&sink); }
  EchoSink sink;
};
struct Tracer : ICMPCls {
  Tracer() { Events(&hops); }
  HopSink hops;
};

/// The kind of socket that the system grants, and the family of the hosts that are asked.
struct EchoWay {
  EchoSocketEnum kind;
  bool v6;
};

inline const EchoWay kEchoWays[] = {{EchoSocketRaw, false},
                                    {EchoSocketDatagram, false},
                                    {EchoSocketRaw, true},
                                    {EchoSocketDatagram, true}};

inline std::string EchoWayName(const testing::TestParamInfo<EchoWay>& way) {
  return std::string(way.param.kind == EchoSocketRaw ? "Raw" : "Datagram") +
         (way.param.v6 ? "IPv6" : "");
}

}  // namespace netro
