// WatchpostCls: observes a list of hosts on a timer, by ICMP echo (RFC 792) or by an HTTP request
// (RFC 9110), and reports the ones that go down and come back: in a log, by mail, by programs and
// by events. A settings file (INI) says what to do; docs/watch.md describes it.
//
// All hosts that are due are probed at the same time. Nothing here blocks: rounds, mails and
// programs run while the thread's loop is pumped.
//
// Thread: as SocketCls.
#pragma once

#include <netro/Export.h>
#include <netro/Types.h>

#include <cstdint>
#include <memory>
#include <string>
#include <utility>

namespace netro {

class Watchpost;

/// The numbers that GetStatus returns.
enum WatchpostStatusEnum : std::int32_t {
  WatchpostStopped = 0,
  WatchpostStarted = 1,
  WatchpostPaused = 2,
  WatchpostBusy = 3,  // a round is running
};

enum WatchedStateEnum : std::int32_t {
  WatchedUnknown = 0,  // never seen, and not reported down either
  WatchedUp = 1,
  WatchedDown = 2,  // reported down, and not up again
};

/// What is known of a host of the list.
struct WatchedHost {
  std::string Name;
  std::string Host;  // name, address or URL
  bool Http = false;
  WatchedStateEnum State = WatchedUnknown;
  std::int32_t Successes = 0;          // in a row
  std::int32_t Failures = 0;           // in a row
  std::string LastAnswer;              // text of the last probe; empty before the first
  std::int32_t LastMilliSeconds = -1;  // of the last probe, -1 when it failed
  Date LastProbe = 0;                  // UTC; 0: none yet
  Date NextProbe = 0;                  // UTC; 0 while nothing is observed
};

/// Receives the events of a WatchpostCls. Everything is allowed inside, stopping the observation
/// and deleting the object included. What an event throws leaves through the pump, or through the
/// method that raised it, and takes the Alert of the same probe with it; the observation goes on.
class NETRO_EXPORT WatchpostClsEvents {
 public:
  virtual ~WatchpostClsEvents() = default;

  /// A host has gone down (`SuccessMsg` false) or come up again. `Protocol` is the kind of probe,
  /// "Ping" or "http", `Index` the host's place in the list, from 0; `ErrorDump` the text of the
  /// last failure.
  virtual void Alert(const std::string& Protocol, std::int32_t Index, bool SuccessMsg,
                     const std::string& HostName, const std::string& Host,
                     const std::string& ErrorDump) {
    (void)Protocol, (void)Index, (void)SuccessMsg, (void)HostName, (void)Host, (void)ErrorDump;
  }
  /// True at start and continue, false at pause and stop.
  virtual void OnTheHunt(bool Hunting) { (void)Hunting; }
  /// A host has been probed; HostAt(Index) tells how that went. Comes before an Alert.
  virtual void Probed(std::int32_t Index) { (void)Index; }
  /// All probes of a round are done.
  virtual void RoundEnded() {}
};

class NETRO_EXPORT WatchpostCls {
 public:
  WatchpostCls();
  /// Stops without events. Mails that wait still go out while the program runs.
  ~WatchpostCls();
  WatchpostCls(const WatchpostCls&) = delete;
  WatchpostCls& operator=(const WatchpostCls&) = delete;

  /// The sink of this object's events; not owned, may be null.
  WatchpostClsEvents* Events() const { return events_; }
  void Events(WatchpostClsEvents* sink) { events_ = sink; }

  /// The settings file.
  const std::string& SettingsName() const { return settingsName_; }
  void SettingsName(std::string value) { settingsName_ = std::move(value); }

  // Each returns true on success; else LastErr and LastErrMsg tell why, and nothing has changed.

  /// Reads the settings, opens the log and starts the timer; the first round comes with its first
  /// tick, a second later.
  bool StartObservation();
  bool StopObservation();
  /// Stops the timer. What is known of the hosts stays; a round that is running is given up.
  bool PauseObservation();
  bool ContinueObservation();
  /// Begins a round at once, with the hosts that are due.
  bool ObserveNow();
  /// Reads the settings file again. Hosts that stay in the list (same name, host and kind) keep
  /// what is known of them.
  bool RefreshSettings();
  /// Makes every host due at once.
  bool ResetWatchAt();

  /// A WatchpostStatusEnum.
  std::int32_t GetStatus() const;

  /// The hosts, in the order of the settings. Outside the list an empty one.
  std::int32_t HostCount() const;
  WatchedHost HostAt(std::int32_t Index) const;
  /// Mails of reports that are not out yet. They go one after the other on a thread of their own.
  std::int32_t MailsWaiting() const;

  /// Of the last call: 0, or a number of docs/watch.md; and its text, empty for 0. A mail or a
  /// program of a report that failed is told here, too.
  std::int32_t LastErr() const;
  const std::string& LastErrMsg() const;

  /// Stops, and gives up the mails that wait.
  void Kill();

 private:
  template <class Call>
  bool Guarded(Call call);

  WatchpostClsEvents* events_ = nullptr;
  std::string settingsName_;
  std::shared_ptr<Watchpost> watchpost_;
};

}  // namespace netro
