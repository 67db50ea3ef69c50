// The work behind a WatchpostCls: its state, timer, rounds and reports. Shared with the callbacks
// that are under way, so that an event may delete the WatchpostCls. On its loop's thread.
#pragma once

#include <netro/LogfileCLS.h>
#include <netro/WatchpostCls.h>

#include <cstddef>
#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <unordered_map>
#include <vector>

#include "diag/WatchHistory.h"
#include "diag/WatchList.h"
#include "diag/WatchProbes.h"
#include "diag/WatchReports.h"
#include "diag/WatchSettings.h"
#include "diag/WatchState.h"
#include "platform/ErrorNumbers.h"
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
  bool Add(WatchTarget target, const std::string& kind);
  bool Remove(const std::string& name);
  bool NoMemory();
  /// Stops without events.
  void Release();
  /// The owner goes.
  void Abandon();
  /// Stops, and forgets the reports that wait. What a file keeps stays for the next start.
  void GiveUp();

  const std::shared_ptr<LoopUse>& Use() const { return module_->SharedLoop()->Use(); }
  void Tls(std::shared_ptr<TlsProvider> tls) { tls_ = std::move(tls); }
  const std::shared_ptr<TlsProvider>& Tls() const { return tls_; }

  std::int32_t Status() const;
  const WatchList& List() const { return list_; }
  WatchedHost HostAt(std::size_t index) const;
  const WatchReports& Reports() const { return reports_; }
  WatchedPast PastAt(std::size_t index) const;
  std::int32_t LastErr() const { return lastErr_; }
  const std::string& LastErrMsg() const {
    const bool lacksText = lastErrMsg_.empty() && lastErr_ == kErrNoBuffers;
    return lacksText ? noMemory_ : lastErrMsg_;
  }

 private:
  using Round = std::uint64_t;

  // A probe that is under way.
  struct Running {
    WatchId host = 0;
    Round round = 0;
  };

  struct Remembered {
    WatchHistory history;
    std::optional<TimePoint> last;  // probe of this observation
  };

  bool Begin(const std::string& fileName);
  bool Fail(std::int32_t error, std::string text);
  bool Succeed();
  bool Read(const std::string& fileName, WatchSettings& settings);
  bool AddOwn(WatchSettings& settings);
  bool CheckHosts(const WatchSettings& settings);
  bool CheckEchoes(const WatchSettings& settings);
  bool OpenLog(const std::string& fileName, const WatchSettings& settings);
  bool MoveLog(const std::string& fileName, const WatchSettings& settings);
  void CloseLog();
  bool IsQuiet() const;
  bool TakeHosts(WatchSettings settings);
  void TakeSettings(WatchSettings settings);
  bool StartTimer();
  void StopTimer();
  void Hunting(bool hunting);

  template <class Work>
  void Guarded(Work work);
  void Tick();
  void BeginRound();
  bool HasEcho(const std::vector<WatchId>& due) const;
  void BeginProbe(WatchId host, Round round);
  void GiveUpRounds();
  void ForgetRemoved();
  void Ended(WatchProbes::Number number, const ProbeResult& result);
  void EndRounds();
  void TellProbed(WatchId host);

  void ActOnChanges();
  void TellChanges();
  void Tell(WatchedChangeEnum kind, const WatchList::Host& host, std::int32_t index);
  WatchFacts FactsOf(const WatchList::Host& host) const;
  void Log(const WatchList::Host& host, WatchedChangeEnum kind);
  void Report(const WatchList::Host& host, WatchChange& change);
  void Note(std::int32_t error, const char* state, const WatchFacts& facts,
            const std::string& text);
  void WriteLine(const char* state, const WatchFacts& facts, std::int32_t milliSeconds,
                 const std::string& text);
  void CommitLog();

  void Remember(WatchId host, const ProbeResult& result);
  void ReadState();
  void RecallHosts();
  void Recall(std::size_t index, const WatchMemory& memory);
  bool WriteState();
  std::int32_t WriteStateNow();
  void WriteStateIfDue();
  WatchMemory MemoryOf(const WatchList::Host& host) const;

  void NewLogfile(std::string& Header) override;
  void LogError(std::int32_t ErrorNr, const std::string& ErrorText) override;

  WatchpostCls* owner_;  // null once it is gone
  const std::shared_ptr<SocketModule> module_;
  std::shared_ptr<TlsProvider> tls_;
  WatchSettings settings_;
  std::vector<WatchTarget> own_;  // added by the program, in settings_ too
  WatchList list_;
  WatchProbes probes_;
  std::unordered_map<WatchProbes::Number, Running> running_;
  std::map<Round, std::size_t> rounds_;  // probes that are left; 0: its end is not told yet
  Round lastRound_ = 0;
  LogfileCLS log_;
  bool logOpen_ = false;
  WatchReports reports_;
  std::unordered_map<WatchId, Remembered> histories_;
  // Of the state file, by name: hosts that have not come into the list yet.
  std::unordered_map<std::string, std::pair<WatchMemory, WatchHistory>> strangers_;
  bool stateChanged_ = false;  // since it was written
  bool stateHasWaiting_ = false;
  std::uint64_t stateOut_ = 0;   // of the reports, as it was written
  std::string ownState_;         // the file that has what this object knows
  TimePoint nextState_;          // not to be written before, unless something has changed
  TimePoint earliestState_;      // nor then
  std::int32_t stateError_ = 0;  // that was told
  const std::string senderHostName_;
  std::int32_t status_ = WatchpostStopped;
  std::int32_t timer_ = 0;
  bool logged_ = false;  // lines that are not written yet
  std::int32_t lastErr_ = 0;
  std::string lastErrMsg_;
  const std::string noMemory_;  // made while there was some
};

}  // namespace netro
