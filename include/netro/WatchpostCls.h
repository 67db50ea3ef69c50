// WatchpostCls: observes a list of hosts on a timer, by ICMP echo (RFC 792), an HTTP request (RFC
// 9110) or other protocols, and reports the ones that go down and come back: in a log, by mail, by
// programs and by events. A settings file (INI) says what to do; docs/watch.md describes it.
//
// Each host has a schedule of its own, and no probe waits for another. Nothing here blocks: probes,
// mails and programs run while the thread's loop is pumped.
//
// Thread: as SocketCls.
#pragma once

#include <netro/Export.h>
#include <netro/Tls.h>
#include <netro/Types.h>
#include <netro/WatchedPast.h>

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
  WatchpostBusy = 3,  // probes are under way
};

/// The state of a host as it is reported.
enum WatchedStateEnum : std::int32_t {
  WatchedUnknown = 0,  // never seen, and not reported down either
  WatchedUp = 1,
  WatchedDown = 2,         // reported down, and not up again
  WatchedUnreachable = 3,  // fails behind a host that is down, see section "Parents"
};

/// What is reported of a host.
enum WatchedChangeEnum : std::int32_t {
  WatchedWentDown = 1,
  WatchedCameUp = 2,
  WatchedWentUnreachable = 3,
  WatchedFlaps = 4,      // goes up and down: no more is told of it until it is settled
  WatchedSettled = 5,    // has kept its state for a while
  WatchedStillDown = 6,  // a reminder
};

/// What is known of a host of the list.
struct WatchedHost {
  std::string Name;           // as in the settings
  std::string Host;           // name, address or URL
  std::string Kind = "Ping";  // of the probe: "Ping", "http", "tcp:22" ...
  bool Http = false;          // http or https
  std::string Parent;         // name of the host that it stands behind
  WatchedStateEnum State = WatchedUnknown;  // as it was reported
  std::int32_t Successes = 0;          // in a row
  std::int32_t Failures = 0;           // in a row
  std::string LastAnswer;              // text of the last probe; empty before the first
  std::string LastFailure;             // text of the last probe that failed
  std::int32_t LastMilliSeconds = -1;  // of the last probe, -1 when it failed
  Date LastProbe = 0;                  // UTC; 0: none yet
  Date NextProbe = 0;                  // UTC; 0 while nothing is observed
  Date Since = 0;                      // UTC: when the state began; 0 while it is WatchedUnknown
  bool Flapping = false;               // goes up and down too often for each change to be reported
  bool NotProbed = false;              // the system allows this program no echo; LastAnswer says so
  std::string Cause;                   // of WatchedUnreachable: the host that is down
};

/// Receives the events of a WatchpostCls. Everything is allowed inside, stopping the observation
/// and deleting the object included. What an event throws leaves through the pump, or through the
/// method that raised it, and takes the Alert of the same change with it; the observation goes on.
class NETRO_EXPORT WatchpostClsEvents {
 public:
  virtual ~WatchpostClsEvents() = default;

  /// Something of a host has changed; HostAt(Index) tells what it is now. Comes before an Alert.
  virtual void Changed(std::int32_t Index, WatchedChangeEnum Change) { (void)Index, (void)Change; }
  /// A host has gone down (`SuccessMsg` false) or come up again. `Protocol` is the kind of probe,
  /// "Ping", "http" ..., `Index` the host's place in the list, from 0; `ErrorDump` the text of the
  /// last failure. With settings that ask for them, the other changes come as well, but for
  /// reminders.
  virtual void Alert(const std::string& Protocol, std::int32_t Index, bool SuccessMsg,
                     const std::string& HostName, const std::string& Host,
                     const std::string& ErrorDump) {
    (void)Protocol, (void)Index, (void)SuccessMsg, (void)HostName, (void)Host, (void)ErrorDump;
  }
  /// True at start and continue, false at pause and stop.
  virtual void OnTheHunt(bool Hunting) { (void)Hunting; }
  /// A host has been probed; HostAt(Index) tells how that went. Comes before an Alert.
  virtual void Probed(std::int32_t Index) { (void)Index; }
  /// All probes of a round are done, that is, of those that began together. A round may end before
  /// one that began earlier.
  virtual void RoundEnded() {}
};

class NETRO_EXPORT WatchpostCls {
 public:
  WatchpostCls();
  /// Stops without events. Reports that wait still go out while the thread's loop is turned; with a
  /// StateFile programs, webhooks and what is gathered for mails are kept for the next start
  /// instead.
  ~WatchpostCls();
  WatchpostCls(const WatchpostCls&) = delete;
  WatchpostCls& operator=(const WatchpostCls&) = delete;

  /// The sink of this object's events; not owned, may be null.
  WatchpostClsEvents* Events() const { return events_; }
  void Events(WatchpostClsEvents* sink) { events_ = sink; }

  /// The settings file.
  const std::string& SettingsName() const { return settingsName_; }
  void SettingsName(std::string value) { settingsName_ = std::move(value); }

  /// Protects probes of https; without it they are refused when the settings are read. Takes effect
  /// with the next StartObservation or RefreshSettings.
  const std::shared_ptr<TlsProvider>& Tls() const;
  void Tls(std::shared_ptr<TlsProvider> value);

  /// True: the sink does the reporting, and the settings need no action.
  bool OwnReports() const { return ownReports_; }
  void OwnReports(bool value) { ownReports_ = value; }

  // Each returns true on success; else LastErr and LastErrMsg tell why, and nothing has changed.

  /// Reads the settings, opens the log and starts the timer; the first round comes with its first
  /// tick, a second later.
  bool StartObservation();
  bool StopObservation();
  /// Stops the timer. What is known of the hosts stays; a round that is running is given up.
  bool PauseObservation();
  bool ContinueObservation();
  /// Begins a round at once, with the hosts that are due. Refused while probes are under way.
  bool ObserveNow();
  /// Reads the settings file again. Hosts that stay in the list (same name, host and kind) keep
  /// what is known of them.
  bool RefreshSettings();
  /// Makes every host due at once.
  bool ResetWatchAt();

  /// Adds a host at the end of the list, where it stays until RemoveHost, whatever file is read.
  /// `Kind` is as in the settings ("tcp:22"), `Parent` the name of a host of the list, or empty. It
  /// is due at once. Before StartObservation too: then the settings file needs no host.
  bool AddHost(const std::string& Name, const std::string& Host, const std::string& Kind = "Ping",
               const std::string& Parent = std::string());
  /// Takes a host out of the list, also one of the file, until that is read again. Refused while it
  /// is the uplink, or others stand behind it.
  bool RemoveHost(const std::string& Name);

  /// A WatchpostStatusEnum.
  std::int32_t GetStatus() const;

  /// The hosts, in the order of the settings. Outside the list an empty one.
  std::int32_t HostCount() const;
  WatchedHost HostAt(std::int32_t Index) const;
  /// What is remembered of a host. Outside the list an empty one.
  WatchedPast PastAt(std::int32_t Index) const;
  /// Mails of reports that are not out yet, also those that are tried again later.
  std::int32_t MailsWaiting() const;
  /// Mails, programs and webhooks of reports that have not been tried yet.
  std::int32_t ReportsUntried() const;

  /// Of the last call: 0, or a number of docs/watch.md; and its text, empty for 0. A mail or a
  /// program of a report that failed is told here, too.
  std::int32_t LastErr() const;
  const std::string& LastErrMsg() const;

  /// Stops, and gives up the mails, programs and webhooks that wait. What a SpoolFolder or
  /// StateFile keeps stays for the next start.
  void Kill();

 private:
  template <class Call>
  bool Guarded(Call call);

  WatchpostClsEvents* events_ = nullptr;
  std::string settingsName_;
  bool ownReports_ = false;
  std::shared_ptr<Watchpost> watchpost_;
};

}  // namespace netro
