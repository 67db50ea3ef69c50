// What is done about a host's change: mails, programs and webhooks. All of it happens in tasks of
// the loop; nothing here blocks. What waits goes on after the object is gone, while the thread's
// loop is turned. On its loop's thread.
#pragma once

#include <netro/Tls.h>
#include <netro/Types.h>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "diag/WatchNotes.h"
#include "diag/WatchSettings.h"
#include "diag/WatchWaiting.h"

namespace netro {

class WatchHooks;
class WatchMails;
class WatchPrograms;

struct WatchReport {
  enum Kind { Down, Up, Unreachable, Flapping, Settled, Reminder } kind = Down;
  WatchFacts facts;
  std::int32_t milliSeconds = -1;  // of the last probe
  Date date = 0;                   // UTC, of the change
  Date since = 0;                  // UTC: when the state began that this ends, or reminds of
  std::string cause;               // Unreachable: the name of the host that is down
};

class WatchReports {
 public:
  explicit WatchReports(WatchNotes notes);
  /// Mails that are being gathered go out; nothing is told any more.
  ~WatchReports();
  WatchReports(const WatchReports&) = delete;
  WatchReports& operator=(const WatchReports&) = delete;

  /// Takes the settings for all that is reported from now on, and the mails that wait in
  /// `spoolFolder` from before. `tls` is for webhooks with https, may be null.
  void Configure(const WatchSettings& settings, std::shared_ptr<TlsProvider> tls);

  /// Down and Up carry out their actions. Unreachable goes out as mails, since its router has told
  /// programs and webhooks; the others as mails and webhooks, of DownActions (Settled: UpActions).
  /// `done` counts the actions. When memory fails, the same call goes on with those that are left.
  void Report(const WatchReport& report, std::size_t& done);

  /// To be called now and then: takes up what a lack of memory has stopped.
  void Tick();
  /// Mails that are being gathered go out now; those with a `spoolFolder` are there at return.
  void Flush();

  /// Mails that are not out yet.
  std::int32_t MailsWaiting() const;
  /// Mails, programs and webhooks that have not been tried yet.
  std::int32_t Untried() const;
  /// Forgets the mails, programs and webhooks that wait. Mails in a `spoolFolder` of the settings
  /// stay there.
  void GiveUp();

  /// What waits but for the mails that are in a folder, for a restart to take it up again with
  /// Recall. Out counts those that wait no more.
  std::vector<WatchWaiting> Waiting() const;
  void Recall(WatchWaiting waiting);
  std::uint64_t Out() const;
  /// Forgets it.
  void GiveUpWaiting();

 private:
  void Carry(const WatchAction& action, const WatchReport& report);
  void SendMail(const WatchReport& report);
  void Run(const WatchAction& action, const WatchReport& report);
  void Post(const std::string& url, const WatchReport& report);

  WatchSettings settings_;
  const std::shared_ptr<WatchNotes> notes_;
  std::shared_ptr<WatchMails> mails_;
  const std::shared_ptr<WatchPrograms> programs_;
  const std::shared_ptr<WatchHooks> hooks_;
};

}  // namespace netro
