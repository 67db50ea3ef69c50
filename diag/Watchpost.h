// The work behind a WatchpostCls: its state, timer, rounds and reports. Shared with the callbacks
// that are under way, so that an event may delete the WatchpostCls. On its loop's thread.
#pragma once

#include <netro/LogfileCLS.h>
#include <netro/WatchpostCls.h>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "diag/WatchList.h"
#include "diag/WatchMails.h"
#include "diag/WatchProbes.h"
#include "diag/WatchSettings.h"
#include "socket/SocketModule.h"

namespace netro {

class Watchpost final : public std::enable_shared_from_this<Watchpost>, private LogfileCLSEvents {
 public:
  explicit Watchpost(WatchpostCls& owner);

  bool Start(const std::string& fileName);
  bool Stop();
  bool Pause();
  bool Continue();
  bool Observe();
  bool Refresh(const std::string& fileName);
  bool Reset();
  bool NoMemory();
  /// Stops without events.
  void Release();
  /// The owner goes.
  void Abandon();

  std::int32_t Status() const;
  const WatchList& List() const { return list_; }
  WatchedHost HostAt(std::size_t index) const;
  WatchMails& Mails() const { return *mails_; }
  std::int32_t LastErr() const { return lastErr_; }
  const std::string& LastErrMsg() const { return lastErrMsg_; }

 private:
  bool Fail(std::int32_t error, std::string text);
  bool Succeed();
  bool Read(const std::string& fileName, WatchSettings& settings);
  bool OpenLog(const std::string& fileName);
  bool StartTimer();
  void StopTimer();
  void Hunting(bool hunting);

  template <class Work>
  void Guarded(Work work);
  void Tick();
  void Round();
  void GiveUpRound();
  void Ended(std::size_t index, const ProbeResult* result);
  void Tell(std::size_t index, WatchChange change);
  void EndRound();

  void Report(const WatchList::Host& host, bool up);
  void SendMail(const WatchFacts& facts, bool up);
  void TellOfMails();
  void RunProgram(const WatchAction& action, const WatchFacts& facts);
  void Note(std::int32_t error, const char* state, const WatchFacts& facts,
            const std::string& text);
  void WriteLine(const char* state, const WatchFacts& facts, std::int32_t milliSeconds,
                 const std::string& text);
  void CommitLog();
  void NewLogfile(std::string& Header) override;
  void LogError(std::int32_t ErrorNr, const std::string& ErrorText) override;

  WatchpostCls* owner_;  // null once it is gone
  const std::shared_ptr<SocketModule> module_;
  WatchSettings settings_;
  WatchList list_;
  WatchProbes probes_;
  LogfileCLS log_;
  const std::shared_ptr<WatchMails> mails_ = std::make_shared<WatchMails>();
  const std::string senderHostName_;
  std::int32_t status_ = WatchpostStopped;
  std::int32_t timer_ = 0;
  bool inRound_ = false;
  bool broken_ = false;      // the round, by a lack of memory; the next tick gives it up
  bool untold_ = false;      // its end, because an event threw; the next tick tells it
  std::size_t running_ = 0;  // probes of the round
  bool logged_ = false;      // lines that are not written yet
  std::int32_t lastErr_ = 0;
  std::string lastErrMsg_;
};

}  // namespace netro
