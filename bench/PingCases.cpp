// Every target is pinged once with the same number of bytes. The addresses are those of loopback,
// where the system answers within the call that sends: what is measured is the work of sending,
// receiving and keeping the requests apart. Each case has a network of its own, in which a part of
// the targets may stay silent.

#include "bench/PingCases.h"

#include <netro/EchoCls.h>
#include <netro/MessageLoop.h>
#include <unistd.h>

#include <cstdio>
#include <string>
#include <vector>

#include "bench/Cases.h"
#include "bench/Fping.h"
#include "bench/PingCommand.h"
#include "bench/PingNetwork.h"
#include "bench/Process.h"

namespace netro::bench {
namespace {

constexpr int kDataBytes = 32;
constexpr int kTimeoutMilliseconds = 500;

struct Pings {
  int targets = 0;
  int everySilent = 0;           ///< every so many targets one never answers
  int intervalMilliseconds = 0;  ///< from one request to the next
  PingSocket socket = PingSocket::Datagram;
};

std::vector<std::string> TargetsOf(const Pings& pings) {
  std::vector<std::string> targets;
  for (int i = 0; i < pings.targets; ++i) {
    const bool silent = pings.everySilent != 0 && i % pings.everySilent == pings.everySilent - 1;
    targets.push_back((silent ? "10.1." : "127.1.") + std::to_string(i / 250) + "." +
                      std::to_string(1 + i % 250));
  }
  return targets;
}

std::size_t AnsweringOf(const Pings& pings) {
  const int silent = pings.everySilent != 0 ? pings.targets / pings.everySilent : 0;
  return static_cast<std::size_t>(pings.targets - silent);
}

/// Sends the requests at once or at intervals, and waits in the loop for the end of all.
class Pinger : private EchoClsEvents {
 public:
  Pinger(const Pings& pings, const std::vector<std::string>& targets)
      : pings_(pings), targets_(targets) {
    echo_.Events(this);
  }

  void Run() {
    MessageLoop& loop = MessageLoop::ForThisThread();
    if (pings_.intervalMilliseconds == 0) {
      while (SendNext()) {
      }
    } else {
      SendNext();
      timer_ = loop.SetTimer(pings_.intervalMilliseconds, [this] { SendNext(); });
    }
    loop.RunLoop();
    loop.KillTimer(timer_);
  }

  const std::vector<int>& RoundTrips() const { return roundTrips_; }
  EchoSocketEnum SocketUsed() const { return echo_.SocketUsed(); }

 private:
  bool SendNext() {
    if (sent_ == targets_.size()) {
      return false;
    }
    if (echo_.Send(targets_[sent_++], 0, kDataBytes, kTimeoutMilliseconds) == 0) {
      CountEnd();
    }
    return true;
  }

  void Reply(std::int32_t /*Id*/, const std::string& /*Host*/, std::int32_t MicroSeconds,
             std::int32_t Status, std::int32_t /*TTL*/) override {
    if (Status == 0) {
      roundTrips_.push_back(MicroSeconds);
    }
    CountEnd();
  }

  void CountEnd() {
    if (++ended_ == targets_.size()) {
      MessageLoop::ForThisThread().QuitLoop();
    }
  }

  const Pings& pings_;
  const std::vector<std::string>& targets_;
  EchoCls echo_;
  std::size_t sent_ = 0;
  std::size_t ended_ = 0;
  std::int32_t timer_ = 0;
  std::vector<int> roundTrips_;
};

std::string NetroPing(const Pings& pings, Stopwatch& watch) {
  const std::vector<std::string> targets = TargetsOf(pings);
  watch.Start();
  Pinger pinger(pings, targets);
  pinger.Run();
  watch.Stop();
  const EchoSocketEnum socket =
      pings.socket == PingSocket::Raw ? EchoSocketRaw : EchoSocketDatagram;
  if (pinger.SocketUsed() != socket) {
    return "another socket was used";
  }
  if (pinger.RoundTrips().size() != AnsweringOf(pings)) {
    return std::to_string(pinger.RoundTrips().size()) + " replies";
  }
  watch.Note(NoteRoundTrips(pinger.RoundTrips()));
  return {};
}

std::string FpingPing(const Pings& pings, Stopwatch& watch) {
  const std::vector<std::string> options = {"-b", std::to_string(kDataBytes),
                                            "-t", std::to_string(kTimeoutMilliseconds),
                                            "-i", std::to_string(pings.intervalMilliseconds)};
  return RunFping(options, TargetsOf(pings), AnsweringOf(pings), watch);
}

using PingFunction = std::string (*)(const Pings&, Stopwatch&);

void Add(const std::string& name, const std::string& library, PingFunction function,
         const Pings& pings, const std::string& against) {
  AddCase({name, library, "pings", static_cast<double>(pings.targets), against,
           [function, pings](Stopwatch& watch) {
             return EnterPingNetwork(pings.socket) ? function(pings, watch) : "no own network";
           }});
}

/// fping's figures come from raw sockets in all cases: with datagram sockets it misses the replies.
void AddBesideFping(const std::string& name, Pings pings) {
  if (!FindFping().empty()) {
    Add(name, "fping", FpingPing, {pings}, "");
  }
  Add(name, "netro", NetroPing, pings, name + "/fping");
  pings.socket = PingSocket::Raw;
  Add(name, "netro raw", NetroPing, pings, name + "/fping");
}

bool CanMakeNetworks() {
  ChildProcess probe([] { _exit(EnterPingNetwork(PingSocket::Datagram) ? 0 : 1); });
  return probe.Wait() == 0;
}

}  // namespace

void AddPingCases() {
  if (!CanMakeNetworks()) {
    std::fprintf(stderr, "left out: pings (no network namespace can be made here)\n");
    return;
  }
  if (FindFping().empty()) {
    std::fprintf(stderr, "left out: fping\n");
  }
  const std::string thousand = "ping of 1,000 targets";
  AddBesideFping(thousand, {1'000});
  AddBesideFping("ping of 10,000 targets", {10'000});
  AddBesideFping("ping of 1,000 targets, 100 silent", {1'000, 10});
  AddBesideFping("ping of 100 targets, one every 10 ms", {100, 0, 10});
  AddPingCommandCases();
  Add("ping of 60,000 targets", "netro", NetroPing, {60'000}, thousand + "/netro");
}

}  // namespace netro::bench
