// One run of "netro doctor": what was asked for, what the layers have learnt so far, and the layers
// themselves, each of which adds its findings. Thread: the loop's.
#pragma once

#include <netro/Tls.h>
#include <netro/Types.h>

#include <chrono>
#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "doctor/DoctorOptions.h"
#include "doctor/Findings.h"
#include "doctor/SystemRoutes.h"
#include "terminal/Stopwatch.h"

namespace netro::tool {

/// What came of asking the server.
struct Exchange {
  std::string failed;  // the layer that has failed; empty: there was an answer
  std::int32_t error = 0;
  std::string text;  // of the error, or the answer's first line
  std::int32_t status = 0;
  TlsInfo tls;
  std::string date;  // of the answer, as it came
  std::string age;
  bool isSilent = false;  // the server waits to be asked, and nobody knows how
};

class Checkup {
 public:
  using Sink = std::function<void(const Finding&)>;

  /// `sink` hears of each finding at once.
  Checkup(DoctorRequest request, Sink sink);

  const DoctorRequest request;
  // The way to the first host: the proxy, where there is one.
  const std::string host;
  const std::int32_t port;
  const bool isLiteral;  // an address, which needs no lookup
  const bool isLocal;    // nothing leaves this computer

  // What layers tell those above them.
  std::vector<SystemAdapter> adapters;
  std::vector<SystemRoute> routes;
  std::map<std::string, bool> neighbours;  // that were asked, and whether they have answered
  std::vector<std::string> addresses;      // of `host`
  std::vector<std::string> open;           // those that take connections
  std::optional<Exchange> exchange;

  void Add(Finding finding);
  const std::vector<Finding>& Findings() const { return findings_; }
  /// The layer that is broken, so that those above need not be tried; null while there is none.
  const Finding* Broken() const;

  bool HasProxy() const { return request.proxy.type != NoProxy; }
  /// For one step, with what is left of the total.
  std::chrono::milliseconds Limit() const;
  double Left() const;
  /// Stops the walk: no more layers begin.
  std::function<bool()> isStopped = [] { return false; };

 private:
  const Sink sink_;
  const Stopwatch watch_;
  double found_ = 0;  // when the last finding came
  std::vector<Finding> findings_;
};

/// The answer of the server, which is asked when the first layer wants to know.
const Exchange& Ask(Checkup& checkup);

/// The neighbour that packets of a route go to first, if there is one to ask.
void CheckNextHop(Checkup& checkup, const SystemRoute& route);

// The layers, from below.
void CheckAdapter(Checkup& checkup);
void CheckRoute(Checkup& checkup);
void CheckNeighbour(Checkup& checkup);
void CheckResolver(Checkup& checkup);
void CheckName(Checkup& checkup);
void CheckAddress(Checkup& checkup);
void CheckPath(Checkup& checkup);
void CheckPort(Checkup& checkup);
void CheckProxy(Checkup& checkup);
void CheckTls(Checkup& checkup);
void CheckAnswer(Checkup& checkup);
void CheckClock(Checkup& checkup);

}  // namespace netro::tool
