// WhoIsCls: asks a WHOIS server about a name (RFC 3912).
//
// Thread: as SocketCls; only Kill and StopWaiting may come from any thread, or from a signal
// handler. WhoIs blocks, keeping the loop alive.
#pragma once

#include <netro/AddressPreference.h>
#include <netro/Export.h>
#include <netro/ProxySettings.h>
#include <netro/ProxyTypes.h>

#include <cstdint>
#include <memory>
#include <string>
#include <utility>

namespace netro {

class SocketModule;
class WhoIsQuery;
struct CallState;
struct ConnectionPlan;

class NETRO_EXPORT WhoIsCls : public ProxySettings<WhoIsProxyTypeEnum, 1080> {
 public:
  WhoIsCls();
  ~WhoIsCls();
  WhoIsCls(const WhoIsCls&) = delete;
  WhoIsCls& operator=(const WhoIsCls&) = delete;

  // Settings. A query works on what they are when it begins.

  /// Seconds: for connecting, and of silence while the answer comes.
  std::int32_t Timeout() const { return timeout_; }
  void Timeout(std::int32_t value) { timeout_ = value; }
  /// The port, unless Host names one.
  std::int32_t Port() const { return port_; }
  void Port(std::int32_t value) { port_ = value; }
  /// DNS servers for name lookups, see SocketCls::DNSURL.
  const std::string& DNSURL() const { return dnsURL_; }
  void DNSURL(std::string value) { dnsURL_ = std::move(value); }
  /// Which address of a host is used, see AddressPreference.h.
  AddressPreferenceEnum AddressPreference() const { return preference_; }
  void AddressPreference(AddressPreferenceEnum value) { preference_ = value; }

  /// Sends `Query` to the server `Host` ("host", "host:port" or "whois://host:port") and takes its
  /// answer into Result. True when the server has answered, if only by closing, and closed in
  /// order. Else LastErr tells why, and what came before stays in Result. While a query of this
  /// object is running another is refused: false, and nothing is changed.
  bool WhoIs(const std::string& Host, const std::string& Query);

  /// The answer so far, its bytes as they came.
  const std::string& Result() const { return result_; }
  /// 0; the socket's number; 9001-9003 the proxy refused; 9999 cancelled; 10002 no word for Timeout
  /// seconds; 10022 an argument or setting that cannot be; 10040 an answer over 64 MiB, of which
  /// these are kept.
  std::int32_t LastErr() const { return lastErr_; }
  /// Its text; empty for 0.
  const std::string& LastErrMsg() const { return lastErrMsg_; }

  /// End the running query with 9999. Both are the same; any thread, signal-safe.
  void StopWaiting();
  void Kill();

 private:
  friend class WhoIsQuery;

  bool Ask(std::string host, std::string query);
  static std::string ConnectText(const ConnectionPlan& plan, std::int32_t error);
  bool Fail(std::int32_t error, std::string text = std::string());

  std::shared_ptr<SocketModule> module_;
  std::shared_ptr<CallState> call_;
  std::int32_t timeout_ = 30;
  std::int32_t port_ = 43;
  std::string dnsURL_;
  AddressPreferenceEnum preference_ = preferIPv4;
  std::string result_;
  std::int32_t lastErr_ = 0;
  std::string lastErrMsg_;
};

}  // namespace netro
