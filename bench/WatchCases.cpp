// There is no peer for a watcher: the cases say how its cost grows with the number of hosts, and
// what a watcher needs of a processor. At the default delays each host is probed every 300 seconds,
// so a round and the ticks in between are what 300 seconds cost.

#include "bench/WatchCases.h"

#include <netro/MessageLoop.h>
#include <netro/WatchpostCls.h>

#include <cstdio>
#include <fstream>
#include <string>

#include "bench/Cases.h"
#include "bench/PingNetwork.h"
#include "bench/Process.h"

namespace netro::bench {
namespace {

constexpr int kRounds = 5;
constexpr int kSecondsBetweenProbes = 300;

void WriteSettings(const std::string& file, int hosts, int everySilent) {
  std::ofstream settings(file);
  settings << "[DownActions]\n1=log\n[HostNames]\n";
  for (int i = 0; i < hosts; ++i) {
    const bool silent = everySilent != 0 && i % everySilent == 0;
    settings << "host" << i << '=' << (silent ? "10.1." : "127.1.") << i / 250 << '.' << 1 + i % 250
             << "|Ping\n";
  }
}

class Watch : private WatchpostClsEvents {
 public:
  bool Start(const std::string& settings) {
    post_.Events(this);
    post_.SettingsName(settings);
    return post_.StartObservation();
  }

  /// One round over all hosts; the number of those that answered.
  int Round() {
    succeeded_ = 0;
    post_.ResetWatchAt();
    post_.ObserveNow();
    MessageLoop::ForThisThread().RunLoop();
    return succeeded_;
  }

  /// Runs the loop while nothing is due.
  void Idle(int seconds) {
    MessageLoop& loop = MessageLoop::ForThisThread();
    const std::int32_t timer = loop.SetTimer(seconds * 1000, [&loop] { loop.QuitLoop(); });
    loop.RunLoop();
    loop.KillTimer(timer);
  }

 private:
  void Probed(std::int32_t Index) override {
    succeeded_ += post_.HostAt(Index).LastMilliSeconds >= 0 ? 1 : 0;
  }
  void RoundEnded() override { MessageLoop::ForThisThread().QuitLoop(); }

  WatchpostCls post_;
  int succeeded_ = 0;
};

std::string RunRounds(int hosts, int everySilent, Stopwatch& stopwatch) {
  if (!EnterPingNetwork(PingSocket::Datagram)) {
    return "no network namespace";
  }
  const TempFolder folder;
  WriteSettings(folder.Path() + "/watch.ini", hosts, everySilent);
  Watch watch;
  if (!watch.Start(folder.Path() + "/watch.ini")) {
    return "could not start";
  }
  stopwatch.Start();
  int succeeded = 0;
  for (int i = 0; i < kRounds; ++i) {
    succeeded += watch.Round();
  }
  stopwatch.Stop();
  const int answering = everySilent == 0 ? hosts : hosts - hosts / everySilent;
  char note[64];
  std::snprintf(note, sizeof note, "a round: %.3f s, %.2f %% of a core",
                stopwatch.Seconds() / kRounds,
                100 * stopwatch.CpuSeconds() / kRounds / kSecondsBetweenProbes);
  stopwatch.Note(note);
  return succeeded == answering * kRounds ? "" : "some hosts did not answer";
}

std::string RunIdle(int hosts, Stopwatch& stopwatch) {
  if (!EnterPingNetwork(PingSocket::Datagram)) {
    return "no network namespace";
  }
  const TempFolder folder;
  WriteSettings(folder.Path() + "/watch.ini", hosts, 0);
  Watch watch;
  if (!watch.Start(folder.Path() + "/watch.ini")) {
    return "could not start";
  }
  watch.Round();
  stopwatch.Start();
  watch.Idle(5);
  stopwatch.Stop();
  return "";
}

}  // namespace

void AddWatchCases() {
  for (const int hosts : {1000, 10'000}) {
    AddCase({"watch round, " + std::to_string(hosts) + " hosts", "netro", "probes",
             1.0 * hosts * kRounds, hosts == 1000 ? "" : "watch round, 1000 hosts/netro",
             [hosts](Stopwatch& watch) { return RunRounds(hosts, 0, watch); }});
  }
  AddCase({"watch round, 1000 hosts, 100 silent", "netro", "probes", 1000.0 * kRounds, "",
           [](Stopwatch& watch) { return RunRounds(1000, 10, watch); }});
  AddCase({"watching 10000 hosts, 5 s, none due", "netro", "seconds", 5, "",
           [](Stopwatch& watch) { return RunIdle(10'000, watch); }});
}

}  // namespace netro::bench
