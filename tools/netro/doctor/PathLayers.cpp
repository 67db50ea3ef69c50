// The layers between this computer and the server's port: echoes to each address, and where they
// get lost; a connection to each address.

#include <netro/EchoCls.h>

#include <algorithm>
#include <memory>

#include "doctor/Checkup.h"
#include "doctor/Line.h"
#include "terminal/EchoText.h"
#include "terminal/FailureText.h"
#include "terminal/HostAndPort.h"

namespace netro::tool {
namespace {

using enum FindingState;

constexpr std::size_t kMostAddresses = 16;
constexpr std::chrono::milliseconds kEchoLimit(2000);
constexpr std::int32_t kHops = 30;
constexpr std::int32_t kTimedOut = 11010;
constexpr std::int32_t kExpired = 11013;  // a router's usual word

/// Echoes that are all in flight together, and their answers by the order of sending.
class Echoes : private EchoClsEvents {
 public:
  Echoes() { echo_.Events(this); }

  /// False: the system does not let it.
  bool Send(const std::string& address, std::int32_t timeToLive, std::chrono::milliseconds limit) {
    constexpr std::int32_t kSize = 32;
    const std::int32_t id =
        echo_.Send(address, timeToLive, kSize, static_cast<std::int32_t>(limit.count()));
    if (id == 0) return false;
    ids_.push_back(id);
    answers.emplace_back().Status = kTimedOut;
    return true;
  }
  void Await(std::chrono::milliseconds limit) {
    all_.Await(limit + std::chrono::milliseconds(100));
  }
  std::int32_t Error() const { return echo_.LastErr(); }
  std::string ErrorText() const { return echo_.LastErrMsg(); }

  std::vector<EchoAnswer> answers;

 private:
  void Answer(const EchoAnswer& answer) override {
    const auto index = static_cast<std::size_t>(std::ranges::find(ids_, answer.Id) - ids_.begin());
    if (index < answers.size()) answers[index] = answer;
    if (echo_.Pending() == 0) all_.Raise();
  }

  EchoCls echo_;
  Signal all_;
  std::vector<std::int32_t> ids_;
};

/// How far echoes come: the last router that tells.
std::string FarthestRouter(const Checkup& checkup, const std::string& address) {
  const auto limit = std::min(checkup.Limit(), kEchoLimit);
  Echoes echoes;
  for (std::int32_t hop = 1; hop <= kHops; ++hop) {
    if (!echoes.Send(address, hop, limit)) break;
  }
  echoes.Await(limit);
  std::string last = "no router on the way tells anything";
  for (std::size_t i = 0; i < echoes.answers.size(); ++i) {
    if (echoes.answers[i].Status != kExpired) continue;
    last = "the last router that answers is " + echoes.answers[i].Host + " at hop " +
           std::to_string(i + 1);
  }
  return last;
}

Finding PathFinding(const Checkup& checkup, const std::string& address, const EchoAnswer& answer) {
  Finding finding{"path", Fine, "an echo of " + address,
                  "after " + Milliseconds(answer.MicroSeconds) + " ms", ""};
  if (answer.Status == 0) return finding;
  finding.state = Suspect;
  finding.next =
      "netro trace " + address + " shows the way; some hosts answer no echo and are well";
  finding.seen = EchoAnswerText(answer.Status, IsFiltered(answer));
  if (!answer.Host.empty()) finding.seen += ", says " + answer.Host;
  if (answer.Status == kTimedOut) finding.seen += "; " + FarthestRouter(checkup, address);
  return finding;
}

std::string ConnectAdvice(std::int32_t error, std::int32_t port, bool isProxy) {
  constexpr std::int32_t kRefused = 10061;
  if (error == kRefused) {
    return isProxy ? "start the proxy, or correct --proxy or the environment's proxy"
                   : "nothing listens at port " + std::to_string(port) +
                         ": start the server, or take its right port";
  }
  return "a firewall drops what goes to port " + std::to_string(port) +
         ", or the host is off: try another port of it";
}

/// The cause may lie below: nobody answered, or somebody else.
bool IsSilence(std::int32_t error) {
  constexpr std::int32_t kErrors[] = {10002, 10050, 10051, 10060, 10064, 10065};
  return std::ranges::find(kErrors, error) != std::end(kErrors);
}

Finding PortFinding(const Checkup& checkup, const std::string& address, const Line& line) {
  constexpr std::int32_t kSilent = 10002;
  Finding finding{checkup.HasProxy() ? "proxy" : "port", Fine,
                  "TCP to " + HostAndPortText(address, checkup.port), "it takes connections", ""};
  if (line.isOpen) return finding;
  const std::int32_t error = line.error != 0 ? line.error : kSilent;
  finding.seen = line.error != 0
                     ? FailureText("no connection", error, line.errorText)
                     : "no answer" + TimeoutAdvice(error, checkup.request.options.timeout);
  finding.next = ConnectAdvice(error, checkup.port, checkup.HasProxy());
  finding.isSilent = IsSilence(error);
  finding.state = checkup.open.empty() ? Broken : Partly;
  if (!checkup.open.empty()) finding.layer = "address";
  return finding;
}

}  // namespace

void CheckPath(Checkup& checkup) {
  const auto limit = std::min(checkup.Limit(), kEchoLimit);
  Echoes echoes;
  const std::size_t count = std::min(checkup.addresses.size(), kMostAddresses);
  for (std::size_t i = 0; i < count; ++i) {
    if (echoes.Send(checkup.addresses[i], 0, limit)) continue;
    return checkup.Add({"path", Skipped, "an echo of " + checkup.addresses[i],
                        echoes.Error() == kEchoForbidden
                            ? EchoForbiddenText()
                            : FailureText("not sent", echoes.Error(), echoes.ErrorText()),
                        ""});
  }
  echoes.Await(limit);
  for (std::size_t i = 0; i < count; ++i) {
    checkup.Add(PathFinding(checkup, checkup.addresses[i], echoes.answers[i]));
  }
}

void CheckPort(Checkup& checkup) {
  std::vector<std::unique_ptr<Line>> lines;
  Signal all;
  const auto changed = [&] {
    if (std::ranges::all_of(lines, [](const auto& line) { return line->IsDecided(); })) all.Raise();
  };
  const std::size_t count = std::min(checkup.addresses.size(), kMostAddresses);
  for (std::size_t i = 0; i < count; ++i) {
    lines.push_back(std::make_unique<Line>(checkup.addresses[i], checkup.port, changed));
  }
  changed();  // where none could begin
  all.Await(checkup.Limit());
  for (std::size_t i = 0; i < count; ++i) {
    if (lines[i]->isOpen) checkup.open.push_back(checkup.addresses[i]);
  }
  for (std::size_t i = 0; i < count; ++i) {
    checkup.Add(PortFinding(checkup, checkup.addresses[i], *lines[i]));
  }
}

}  // namespace netro::tool
