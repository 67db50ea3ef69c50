// TimeSurveyCls: asks several time servers by SNTP at the same time, and finds by how much this
// system's clock is wrong as most of them see it (RFC 5905, sections 8 and 11.2.1).
//
// Thread: as SocketCls; only Kill and StopWaiting may come from any thread, or from a signal
// handler. Survey blocks, keeping the loop alive.
#pragma once

#include <netro/AddressPreference.h>
#include <netro/Export.h>
#include <netro/QueryTimeCLS.h>
#include <netro/Types.h>

#include <chrono>
#include <cstdint>
#include <memory>
#include <string>
#include <utility>
#include <vector>

namespace netro {

class SocketModule;
struct CallState;

/// What the survey makes of a server.
enum class TimeServerStateEnum : std::int32_t {
  Agrees = 0,       // one of the majority
  FalseTicker = 1,  // its clock contradicts the majority
  LeftOut = 2,      // it has told no time that counts; Reason tells why
  Unjudged = 3,     // there is no majority
};

/// What one server has come to. Times are in seconds.
struct TimeServerReport {
  std::string Server;  // as in the list
  /// Whom that name means; empty for a server that has told no time. Servers of one address are one
  /// in the judgement.
  std::string Address;
  TimeServerStateEnum State = TimeServerStateEnum::LeftOut;
  /// Why it was left out: a text for people.
  std::string Reason;
  /// How its last query ended, see QueryTimeCLS::LastErr.
  std::int32_t LastErr = 0;
  /// Replies that count. All that follows is of the one with the least delay.
  std::int32_t Samples = 0;
  /// The server's clock minus this system's; the truth is within `Bound` of it if the server and
  /// those that it has its time from are right.
  double Offset = 0;
  double Bound = 0;
  /// On the way to the server and back.
  double Delay = 0;
  /// From there to the reference clock and back, and what that adds at most.
  double RootDelay = 0;
  double RootDispersion = 0;
  /// 1 to 15 for a clock that is set.
  std::int32_t Stratum = 0;
  SNTPLeapIndicatorEnum LeapIndicator = SNTPLeapIndicatorEnum::NoWarning;
  /// The word of a server that wants to be left alone, such as "RATE".
  std::string KissCode;
  /// What its clock is set by: a word, or an address.
  std::string ReferenceID;
};

class NETRO_EXPORT TimeSurveyCls {
 public:
  TimeSurveyCls();
  ~TimeSurveyCls();
  TimeSurveyCls(const TimeSurveyCls&) = delete;
  TimeSurveyCls& operator=(const TimeSurveyCls&) = delete;

  // Settings. A survey works on what they are when it begins.

  /// Names or addresses of the servers, which are asked on port 123. At most 1,000.
  const std::vector<std::string>& Servers() const { return settings_.servers; }
  void Servers(std::vector<std::string> value) { settings_.servers = std::move(value); }
  /// How often each server is asked, 1 to 100.
  std::int32_t Samples() const { return settings_.samples; }
  void Samples(std::int32_t value) { settings_.samples = value; }
  /// Milliseconds from one reply to the next question to the same server. Many servers do not
  /// answer who asks at shorter intervals than two seconds.
  std::int32_t Interval() const { return settings_.interval; }
  void Interval(std::int32_t value) { settings_.interval = value; }
  // Limits as that of QueryTimeCLS, also in fractions of seconds.

  /// For each question, with the lookup of the server's name. A server that has been silent
  /// once is asked no more.
  std::int16_t Timeout() const {
    return static_cast<std::int16_t>(WholeSeconds(settings_.timeout));
  }
  void Timeout(std::int16_t value) { settings_.timeout = std::chrono::seconds(value); }
  void Timeout(std::chrono::milliseconds value) { settings_.timeout = value; }
  /// For the whole survey, which works with what it has got by then; 0: no limit.
  std::int32_t TotalTimeout() const { return WholeSeconds(settings_.totalTimeout); }
  void TotalTimeout(std::int32_t value) { settings_.totalTimeout = std::chrono::seconds(value); }
  void TotalTimeout(std::chrono::milliseconds value) { settings_.totalTimeout = value; }
  /// DNS servers for name lookups, see SocketCls::DNSURL.
  const std::string& DNSURL() const { return settings_.dnsURL; }
  void DNSURL(std::string value) { settings_.dnsURL = std::move(value); }
  /// Which address of a host is used, see AddressPreference.h.
  AddressPreferenceEnum AddressPreference() const { return settings_.preference; }
  void AddressPreference(AddressPreferenceEnum value) { settings_.preference = value; }

  /// Asks all servers. True when a majority of those that are not left out agrees; else LastErr
  /// tells why not, and Reports what each server has said. While a survey of this object is running
  /// another is refused: false, and nothing is changed.
  bool Survey();

  // Results of the last survey.

  /// The true time minus this system's, in seconds: it lies within Bound of Offset.
  double Offset() const { return offset_; }
  double Bound() const { return bound_; }
  /// One for each server, in the order of Servers. Empty after 9999.
  const std::vector<TimeServerReport>& Reports() const { return reports_; }

  /// 0; 9999 cancelled; 10002 at the limit of the task, 10022 a setting that cannot be; 10055 no
  /// memory; 100004 no server has told a time that counts; 100005 no majority of the servers
  /// agrees.
  std::int32_t LastErr() const { return lastErr_; }
  /// Its text; empty for 0.
  const std::string& LastErrMsg() const { return lastErrMsg_; }

  /// End the running survey with 9999. Both are the same; any thread, signal-safe.
  void StopWaiting();
  void Kill();

 private:
  friend class TimeSurvey;

  struct Settings {
    std::vector<std::string> servers;
    std::int32_t samples = 4;
    std::int32_t interval = 250;
    std::chrono::milliseconds timeout = std::chrono::seconds(5);
    std::chrono::milliseconds totalTimeout{0};
    std::string dnsURL;
    AddressPreferenceEnum preference = preferIPv4;
  };

  bool Run();
  std::int32_t CheckSettings(std::string& text) const;
  bool Judge();
  bool Fail(std::int32_t error, std::string text = std::string());

  std::shared_ptr<SocketModule> module_;
  std::shared_ptr<CallState> call_;
  Settings settings_;
  std::vector<TimeServerReport> reports_;
  double offset_ = 0;
  double bound_ = 0;
  std::int32_t lastErr_ = 0;
  std::string lastErrMsg_;
};

}  // namespace netro
