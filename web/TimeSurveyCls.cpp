// TimeSurveyCls: a task for each server, and the judgement of what they have come to.
#include <netro/TimeSurveyCls.h>

#include <algorithm>
#include <new>
#include <utility>

#include "platform/Address.h"
#include "platform/ErrorNumbers.h"
#include "socket/HostLookup.h"
#include "socket/SocketErrors.h"
#include "socket/Wait.h"
#include "web/TimeIntersection.h"
#include "web/TimeSamples.h"

namespace netro {
namespace {

constexpr std::int32_t kNobodyCounts = 100004;
constexpr std::int32_t kNoMajority = 100005;
constexpr std::size_t kMostServers = 1000;
constexpr std::int32_t kMostSamples = 100;

}  // namespace

// One running Survey. Its tasks may outlive it by a moment, so they share it.
class TimeSurvey : public std::enable_shared_from_this<TimeSurvey> {
 public:
  TimeSurvey(const TimeSurveyCls::Settings& settings, std::shared_ptr<CallState> call)
      : settings_(settings), call_(std::move(call)), reports_(settings.servers.size()) {}

  void Start(Loop& loop) {
    for (std::size_t i = 0; i < reports_.size(); ++i) {
      reports_[i].Server = settings_.servers[i];
      reports_[i].Reason = "not answered in time";
      reports_[i].LastErr = kErrTimedOut;
      Task task =
          loop.StartTask([self = shared_from_this(), i] { self->Ask(i); }, Task::UsualStack);
      if (task.Error() == 0) {
        ++running_;
        tasks_.push_back(std::move(task));
      } else {
        Fail(i, task.Error());
      }
    }
  }

  bool IsOver() const { return running_ == 0; }

  /// What the servers have come to. Those that are still being asked are stopped, and what has been
  /// told by then counts.
  std::vector<TimeServerReport> End() {
    std::vector<TimeServerReport> reports = reports_;
    for (TimeServerReport& report : reports) {
      if (report.Reason.empty() && report.LastErr != 0)
        report.Reason = SocketErrorText(report.LastErr);
    }
    for (const Task& task : tasks_) task.Cancel();
    tasks_.clear();  // which share this
    return reports;
  }

 private:
  // The text comes with the end: memory may be short now.
  void Fail(std::size_t i, std::int32_t error) {
    reports_[i].LastErr = error;
    reports_[i].Reason.clear();
  }

  struct Ended {
    TimeSurvey& survey;
    ~Ended() {
      --survey.running_;
      survey.call_->Changed();
    }
  };

  void Ask(std::size_t i) {
    const Ended ended{*this};
    try {
      QueryTimeCLS query;
      query.Server(settings_.servers[i]);
      query.SNTPVersion(3);
      query.SNTPReferenceName(false);
      query.SNTPRandomFraction(true);
      query.Timeout(settings_.timeout);
      query.DNSURL(settings_.dnsURL);
      query.AddressPreference(settings_.preference);
      TakeTimeSamples(query, {settings_.samples, settings_.interval}, reports_[i]);
      if (reports_[i].Samples > 0) reports_[i].Address = AddressOf(settings_.servers[i]);
    } catch (const std::bad_alloc&) {
      Fail(i, kErrNoBuffers);
    }
  }

  // The cache has it: it has just been asked there.
  std::string AddressOf(const std::string& server) const {
    const CancelMark mark(SocketModule::ForThread(), std::make_shared<CallState>());
    const LookupAnswer host =
        ResolveHost(server, {settings_.dnsURL, settings_.preference}, mark, TimePoint::max());
    return host.error == 0 ? FormatAddress(host.First()) : std::string();
  }

  const TimeSurveyCls::Settings settings_;
  const std::shared_ptr<CallState> call_;
  std::vector<TimeServerReport> reports_;
  std::vector<Task> tasks_;
  std::size_t running_ = 0;
};

TimeSurveyCls::TimeSurveyCls()
    : module_(SocketModule::ForThread()), call_(std::make_shared<CallState>()) {}

TimeSurveyCls::~TimeSurveyCls() { call_->Die(); }

bool TimeSurveyCls::Fail(std::int32_t error, std::string text) {
  lastErr_ = error;
  lastErrMsg_ = text.empty() ? SocketErrorText(error) : std::move(text);
  return false;
}

bool TimeSurveyCls::Survey() {
  const BusyScope busy(call_);
  if (busy.Refused()) return false;
  const auto call = call_;
  try {
    return Run();
  } catch (const std::bad_alloc&) {
    return call->alive && Fail(kErrNoBuffers);
  }
}

std::int32_t TimeSurveyCls::CheckSettings(std::string& text) const {
  if (settings_.servers.empty() || settings_.servers.size() > kMostServers) {
    text = "Servers must hold 1 to 1,000 of them.";
  } else if (settings_.samples < 1 || settings_.samples > kMostSamples) {
    text = "Samples must be 1 to 100.";
  } else if (settings_.interval < 0) {
    text = "Interval must not be negative.";
  } else if (settings_.totalTimeout.count() < 0) {
    text = "TotalTimeout must not be negative.";
  }
  return text.empty() ? 0 : kErrInvalidArgument;
}

bool TimeSurveyCls::Run() {
  const CancelMark mark(module_, call_);
  offset_ = bound_ = 0;
  reports_.clear();
  lastErr_ = 0;
  lastErrMsg_.clear();
  std::string text;
  if (const std::int32_t error = CheckSettings(text)) return Fail(error, std::move(text));

  const auto call = call_;
  const auto survey = std::make_shared<TimeSurvey>(settings_, call);
  const TimePoint limit = settings_.totalTimeout.count() > 0
                              ? MillisecondsFromNow(settings_.totalTimeout)
                              : TimePoint::max();
  survey->Start(mark.MessageLoop());
  const WaitEnd end = WaitUntil(mark, limit, [&] { return survey->IsOver(); });
  std::vector<TimeServerReport> reports = survey->End();
  if (!call->alive) return false;
  if (end == WaitEnd::Cancelled) return Fail(kErrCancelled);
  reports_ = std::move(reports);
  if (end == WaitEnd::TimedOut && mark.Expired()) return Fail(kErrTimedOut);
  return Judge();
}

bool TimeSurveyCls::Judge() {
  std::vector<TimeInterval> clocks;
  std::vector<TimeServerReport*> judged;
  std::vector<std::pair<TimeServerReport*, TimeServerReport*>> repeated;
  for (TimeServerReport& report : reports_) {
    if (report.State == TimeServerStateEnum::LeftOut) continue;
    report.Reason.clear();
    const auto same = std::ranges::find_if(judged, [&](const TimeServerReport* other) {
      return !report.Address.empty() && other->Address == report.Address;
    });
    if (same != judged.end()) {
      repeated.emplace_back(&report, *same);
      continue;
    }
    clocks.push_back({report.Offset, report.Bound});
    judged.push_back(&report);
  }
  if (clocks.empty()) return Fail(kNobodyCounts, "No server has told a time that counts.");
  const auto agreement = FindAgreement(clocks);
  if (!agreement) return Fail(kNoMajority, "No majority of the servers agrees on the time.");
  for (std::size_t i = 0; i < judged.size(); ++i) {
    judged[i]->State =
        agreement->agrees[i] ? TimeServerStateEnum::Agrees : TimeServerStateEnum::FalseTicker;
  }
  for (const auto& [report, first] : repeated) report->State = first->State;
  offset_ = (agreement->low + agreement->high) / 2;
  bound_ = (agreement->high - agreement->low) / 2;
  return true;
}

void TimeSurveyCls::StopWaiting() { call_->Stop(module_->MessageLoop()); }

void TimeSurveyCls::Kill() { StopWaiting(); }

}  // namespace netro
