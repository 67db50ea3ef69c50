// WhoIsCls: asks a WHOIS server about a name (RFC 3912), and those that it refers to where that is
// wanted.
//
// Thread: as SocketCls; only Kill and StopWaiting may come from any thread, or from a signal
// handler. WhoIs blocks, keeping the loop alive.
#pragma once

#include <netro/AddressPreference.h>
#include <netro/Export.h>
#include <netro/ProxySettings.h>
#include <netro/ProxyTypes.h>
#include <netro/Types.h>

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <utility>
#include <vector>

namespace netro {

class SocketModule;
class WhoIsCall;
class WhoIsQuery;
class WhoIsTable;
struct CallState;
struct ConnectionPlan;

/// What one server has said.
struct WhoIsAnswer {
  /// "host:port"
  std::string Server;
  /// What it was asked, without the line end.
  std::string Query;
  /// Its bytes as they came, also before a failure.
  std::string Text;
  /// How that ended, as WhoIsCls::LastErr.
  std::int32_t LastErr = 0;
  std::string LastErrMsg;
  double Seconds = 0;
  /// "host:port" of the server that is asked next; empty for none.
  std::string RefersTo;
  /// About referrals that were not followed: printable texts.
  std::vector<std::string> Notes;
};

class NETRO_EXPORT WhoIsCls : public ProxySettings<WhoIsProxyTypeEnum, 1080> {
 public:
  WhoIsCls();
  ~WhoIsCls();
  WhoIsCls(const WhoIsCls&) = delete;
  WhoIsCls& operator=(const WhoIsCls&) = delete;

  // Settings. A query works on what they are when it begins.

  // Limits are told in seconds or, as 500ms, in fractions of them; read, they are whole seconds,
  // rounded up. Each reply of a proxy has whole seconds.

  /// For connecting, and of silence while the answer comes.
  std::int32_t Timeout() const { return WholeSeconds(timeout_); }
  void Timeout(std::int32_t value) { timeout_ = std::chrono::seconds(value); }
  void Timeout(std::chrono::milliseconds value) { timeout_ = value; }
  /// The port, unless Host names one.
  std::int32_t Port() const { return port_; }
  void Port(std::int32_t value) { port_ = value; }
  /// DNS servers for name lookups, see SocketCls::DNSURL.
  const std::string& DNSURL() const { return dnsURL_; }
  void DNSURL(std::string value) { dnsURL_ = std::move(value); }
  /// Which address of a host is used, see AddressPreference.h.
  AddressPreferenceEnum AddressPreference() const { return preference_; }
  void AddressPreference(AddressPreferenceEnum value) { preference_ = value; }

  /// For all that one WhoIs does; 0: no limit.
  std::int32_t TotalTimeout() const { return WholeSeconds(totalTimeout_); }
  void TotalTimeout(std::int32_t value) { totalTimeout_ = std::chrono::seconds(value); }
  void TotalTimeout(std::chrono::milliseconds value) { totalTimeout_ = value; }
  /// Bytes of one answer, of which so many are kept; 0 or below counts as the 64 MiB it has at
  /// first.
  std::int64_t MaxAnswer() const { return maxAnswer_; }
  void MaxAnswer(std::int64_t value) { maxAnswer_ = value; }
  /// True: goes on to the server that an answer refers to, five times at most, to none twice and
  /// not after a failure.
  bool Follow() const { return follow_; }
  void Follow(bool value) { follow_ = value; }
  /// True: referrals may lead to private, loopback and link-local addresses as well. A proxy that
  /// looks names up sees to that itself.
  bool FollowPrivate() const { return followPrivate_; }
  void FollowPrivate(bool value) { followPrivate_ = value; }
  /// Takes the place of the table of servers: a line "what server [how]" for each, where `what` is
  /// a domain (".example"), a network ("192.0.2.0/24"), numbers of autonomous systems
  /// ("AS64496-AS64511"), "*" for all or "-" for nothing, and `how` a query with NAME in it, such
  /// as "n + NAME", which that server gets. "#" begins a comment. Returns a text for each line that
  /// cannot be read, which is left out.
  std::vector<std::string> ServerTable(const std::string& Text);
  /// Called with each answer when it is there. Everything is allowed inside but another query of
  /// this object; the answer goes with the object.
  void AnswerSink(std::function<void(const WhoIsAnswer&)> value) { answerSink_ = std::move(value); }

  /// Sends `Query` to the server `Host` ("host", "host:port" or "whois://host:port") and takes its
  /// answer into Result. True when the server has answered, if only by closing, and closed in
  /// order. Else LastErr tells why, and what came before stays in Result. While a query of this
  /// object is running another is refused: false, and nothing is changed.
  /// With an empty `Host` the server is the one of the table's narrowest line that fits. The query
  /// goes out as the table says to servers that were not named by `Host`.
  /// With Follow, Result, LastErr and the return value are the last server's.
  bool WhoIs(const std::string& Host, const std::string& Query);

  /// The answer so far, its bytes as they came.
  const std::string& Result() const { return answers_.empty() ? noAnswer_ : answers_.back().Text; }
  /// All servers that were asked, in turn; the one that is being asked last.
  const std::vector<WhoIsAnswer>& Answers() const { return answers_; }
  /// 0; the socket's number; 9001-9003 the proxy refused; 9999 cancelled; 10002 no word for Timeout
  /// seconds; 10022 an argument or setting that cannot be; 10040 an answer over MaxAnswer, of which
  /// so much is kept; 10013 the referral was to an address that is not public.
  std::int32_t LastErr() const { return lastErr_; }
  /// Its text; empty for 0.
  const std::string& LastErrMsg() const { return lastErrMsg_; }

  /// End the running query with 9999. Both are the same; any thread, signal-safe.
  void StopWaiting();
  void Kill();

 private:
  friend class WhoIsCall;
  friend class WhoIsQuery;

  bool Fail(std::int32_t error, std::string text = std::string());

  std::shared_ptr<SocketModule> module_;
  std::shared_ptr<CallState> call_;
  std::chrono::milliseconds timeout_ = std::chrono::seconds(30);
  std::int32_t port_ = 43;
  std::string dnsURL_;
  AddressPreferenceEnum preference_ = preferIPv4;
  std::chrono::milliseconds totalTimeout_{0};
  std::int64_t maxAnswer_ = std::int64_t{64} << 20;
  bool follow_ = false;
  bool followPrivate_ = false;
  std::shared_ptr<const WhoIsTable> table_;
  std::function<void(const WhoIsAnswer&)> answerSink_;
  std::vector<WhoIsAnswer> answers_;
  const std::string noAnswer_;
  std::int32_t lastErr_ = 0;
  std::string lastErrMsg_;
};

}  // namespace netro
