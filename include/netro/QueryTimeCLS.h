// QueryTimeCLS: asks a time server for the date and time, by SNTP (RFC 2030, RFC 4330) on port 123,
// by the time protocol (RFC 868) on any other.
//
// Thread: as SocketCls; only Kill and StopWaiting may come from any thread, or from a signal
// handler. QueryTime and DNSLookup block, keeping the loop alive.
#pragma once

#include <netro/AddressPreference.h>
#include <netro/Export.h>
#include <netro/NameLookups.h>
#include <netro/ProxySettings.h>
#include <netro/ProxyTypes.h>
#include <netro/Types.h>

#include <chrono>
#include <cstdint>
#include <memory>
#include <string>
#include <utility>

namespace netro {

class SocketModule;
struct CallState;

/// What the server says about the end of the day (RFC 4330, section 4).
enum class SNTPLeapIndicatorEnum : std::int32_t {
  NoWarning = 0,
  LastMinute61 = 1,
  LastMinute59 = 2,
  Alarm = 3,  // the server's clock is not set
};

/// How the server sees itself; of a server's reply SNTPServer or Broadcast.
enum class SNTPModeEnum : std::int32_t {
  SymmetricActive = 0,
  SymmetricPassive = 1,
  SNTPClient = 2,
  SNTPServer = 3,
  Broadcast = 4,
  Unknown = 5,
};

/// How far the server is from a clock; SNTPStratumNumber has the number.
enum class SNTPStratumEnum : std::int32_t {
  Unspecified = 0,
  PrimaryReference = 1,    // has a clock of its own
  SecondaryReference = 2,  // stratum 2 to 14
  reserved = 3,
};

/// The results as they are kept; the properties of QueryTimeCLS tell what they mean.
struct TimeResult {
  Date dateTime = 0;
  double difference = 0;
  double roundTrip = 0;
  double rootDelay = 0;
  double rootDispersion = 0;
  double precision = 0;
  double pollInterval = 0;
  SNTPStratumEnum stratum = SNTPStratumEnum::Unspecified;
  SNTPModeEnum mode = SNTPModeEnum::Unknown;
  SNTPLeapIndicatorEnum leapIndicator = SNTPLeapIndicatorEnum::NoWarning;
  std::string referenceId;
  double offset = 0;
  double delay = 0;
  std::string kissCode;
  std::int32_t stratumNumber = 0;
};

/// The proxy settings are for queries over TCP; UDP goes directly.
class NETRO_EXPORT QueryTimeCLS : public NameLookups,
                                  public ProxySettings<TimeProxyTypeEnum, 1080> {
 public:
  QueryTimeCLS();
  ~QueryTimeCLS();
  QueryTimeCLS(const QueryTimeCLS&) = delete;
  QueryTimeCLS& operator=(const QueryTimeCLS&) = delete;

  // Settings. A query works on what they are when it begins.

  /// Name or address of the server.
  const std::string& Server() const { return settings_.server; }
  void Server(std::string value) { settings_.server = std::move(value); }
  /// 1 to 65,535; 123 if not set.
  std::int32_t Port() const { return settings_.port; }
  void Port(std::int32_t value) { settings_.port = value; }
  /// In seconds or, as 500ms, in fractions of them; read, it is whole seconds, rounded up.
  std::int16_t Timeout() const {
    return static_cast<std::int16_t>(WholeSeconds(settings_.timeout));
  }
  void Timeout(std::int16_t value) { settings_.timeout = std::chrono::seconds(value); }
  void Timeout(std::chrono::milliseconds value) { settings_.timeout = value; }
  /// True, as if not set: by datagram; false: over TCP, by way of the proxy where there is one.
  bool UseUDP() const { return settings_.useUDP; }
  void UseUDP(bool value) { settings_.useUDP = value; }
  /// 3; any other value asks as version 4.
  std::int32_t SNTPVersion() const { return settings_.version; }
  void SNTPVersion(std::int32_t value) { settings_.version = value; }
  /// True: SNTPreferenceID has the name of a secondary server's reference, for which a lookup takes
  /// a second at most. False: it has the address only, and nobody is asked.
  bool SNTPReferenceName() const { return settings_.referenceName; }
  void SNTPReferenceName(bool value) { settings_.referenceName = value; }
  /// True: the request's transmit time has a fraction of random bits, which nobody can guess who
  /// does not see it, and a forged reply has to repeat them. False: its fraction is 0.
  bool SNTPRandomFraction() const { return settings_.randomFraction; }
  void SNTPRandomFraction(bool value) { settings_.randomFraction = value; }
  /// DNS servers for name lookups, see SocketCls::DNSURL.
  const std::string& DNSURL() const { return settings_.dnsURL; }
  void DNSURL(std::string value) { settings_.dnsURL = std::move(value); }
  /// Which address of a host is used, see AddressPreference.h.
  AddressPreferenceEnum AddressPreference() const { return settings_.preference; }
  void AddressPreference(AddressPreferenceEnum value) { settings_.preference = value; }

  /// Asks once. False: LastErr tells why.
  bool QueryTime();

  // Results of the last query. What the reply does not tell is 0, empty or
  // Unknown.

  /// The server's time (UTC). From a 48-byte reply: its transmit time, without the fraction of a
  /// second, less half the round trip; from a 4-byte reply: its seconds plus half the round trip in
  /// whole seconds.
  Date DateTime() const { return result_.dateTime; }
  /// This system's local time, in its time zone, minus DateTime, in whole seconds.
  double SNTPDifference() const { return result_.difference; }
  /// Seconds from the request to the reply's arrival at this system (over TCP: at the program).
  double SNTPRoundTripDelay() const { return result_.roundTrip; }
  /// The reply's 32-bit number / 65536 × 4096.
  double SNTPRootDelay() const { return result_.rootDelay; }
  double SNTPRootDispersion() const { return result_.rootDispersion; }
  /// 2 to the power of the reply's byte, which is read as 0 to 255: a precision of 2^-20 s shows as
  /// 2^236.
  double SNTPPrecision() const { return result_.precision; }
  /// 2 to the power of the reply's byte, in seconds.
  double SNTPPollInterval() const { return result_.pollInterval; }
  /// What the stratum means.
  SNTPStratumEnum SNTPStratum() const { return result_.stratum; }
  /// The stratum as the reply has it: 0 to 255.
  std::int32_t SNTPStratumNumber() const { return result_.stratumNumber; }
  /// The mode of the reply, a server's own.
  SNTPModeEnum SNTPMode() const { return result_.mode; }
  /// Whether a leap second is near, or the server's clock not set.
  SNTPLeapIndicatorEnum SNTPLeapIndicator() const { return result_.leapIndicator; }
  /// What the server's clock is set by. A primary server's is a word such as "GPS"; a secondary's
  /// is "address (name)" with SNTPVersion 3 (see SNTPReferenceName), and else a date and time.
  const std::string& SNTPreferenceID() const { return result_.referenceId; }
  const std::string& SNTPPreferenceID() const { return result_.referenceId; }

  /// The server's clock minus this system's (UTC), and the time on the way, in seconds with
  /// fractions, by the four timestamps of RFC 4330, section 5. Of 48-byte replies.
  double SNTPOffset() const { return result_.offset; }
  double SNTPDelay() const { return result_.delay; }
  /// The word of a stratum 0 reply, such as "RATE" or "DENY": the server wants to be left alone.
  const std::string& SNTPKissCode() const { return result_.kissCode; }

  /// 0; the socket's number; 9001-9003 the proxy refused; 9999 cancelled; 10002 no reply in time;
  /// 10022 a setting that cannot be; 11001 no such host; 100000 no usable transmit time; 100002 a
  /// zero time; 100003 a reply that has neither 4 nor 48 bytes. After DNSLookup: 0 or 59.
  std::int32_t LastErr() const { return lastErr_; }
  /// Its text; empty for 0.
  const std::string& LastErrMsg() const { return lastErrMsg_; }
  /// The text of any value of LastErr.
  std::string TranslateLastErrNr(std::int32_t LastErr) const;

  /// The address that a name resolves to, or the name of a dotted address; empty on failure.
  std::string DNSLookup(const std::string& Address);

  /// End the running call with 9999. Both are the same; any thread, signal-safe.
  void StopWaiting();
  void Kill();

 private:
  friend class TimeQuery;

  struct Settings {
    std::string server;
    std::int32_t port = 123;
    std::chrono::milliseconds timeout = std::chrono::seconds(30);
    bool useUDP = true;
    std::int32_t version = 3;
    bool referenceName = true;
    bool randomFraction = false;
    std::string dnsURL;
    AddressPreferenceEnum preference = preferIPv4;
  };

  void SetLastErr(std::int32_t error, std::string text = std::string());

  std::shared_ptr<SocketModule> module_;
  std::shared_ptr<CallState> call_;
  Settings settings_;
  TimeResult result_;
  std::int32_t lastErr_ = 0;
  std::string lastErrMsg_;
};

}  // namespace netro
