// QueryDNSCLS: asks a DNS server for records of any type, over UDP or TCP (RFC 1035), and transfers
// zones (RFC 5936).
//
// Thread: as SocketCls; only Kill and StopWaiting may come from any thread, or from a signal
// handler. The two queries block, keeping the loop alive. They return a result code, which is also
// in LastErr, its text in LastErrMsg:
//   0          records were found
//   51, 52     Domain is empty; DNSServer is empty
//   59         over UDP: no such name, no record of this type, a reply that cannot be read, or
//              another refusal; also a Domain that is no DNS name (nothing is sent then)
//   1 ... 15   over TCP: the server's response code
//   22         over TCP: the reply holds no record
//   56         over TCP: the connection ended too early, or the reply cannot be read
//   9001-9003  the SOCKS proxy refused
//   9999       cancelled
//   10002      no reply in time
//   10036      a query of this object is running; nothing was changed
//   10022      a type, a port, QueryID or UDPSize is out of its range; nothing is sent
//   10130      RetryCount is 0 or less
//   others     the socket's numbers
#pragma once

#include <netro/DNSCLS.h>
#include <netro/EDNSCLS.h>
#include <netro/Export.h>
#include <netro/ProxySettings.h>
#include <netro/ProxyTypes.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <memory>
#include <optional>
#include <string>
#include <utility>

namespace netro {

class DnsQuery;
class SocketModule;
struct CallState;

/// The proxy settings are for queries over TCP; UDP goes directly.
class NETRO_EXPORT QueryDNSCLS : public ProxySettings<DNSProxyTypeEnum> {
 public:
  QueryDNSCLS();
  ~QueryDNSCLS();
  QueryDNSCLS(const QueryDNSCLS&) = delete;
  QueryDNSCLS& operator=(const QueryDNSCLS&) = delete;

  // Settings. A query works on what they are when it begins.

  /// The name to ask for, with or without a dot at the end. For TYPE_PTR a dotted address stands
  /// for its name below in-addr.arpa.
  const std::string& Domain() const { return settings_.domain; }
  void Domain(std::string value) { settings_.domain = std::move(value); }
  /// True: names are escaped as in zone files (RFC 1035, section 5.1), that of the question, those
  /// of the records and the keys. So "a\.b.example" has two labels, of which the first holds a dot;
  /// "\DDD" is the byte of this decimal number. False: labels are joined with dots as they are.
  bool EscapeNames() const { return settings_.escapeNames; }
  void EscapeNames(bool value) { settings_.escapeNames = value; }
  /// The type that is asked for.
  QueryEnum QueryType() const { return settings_.queryType; }
  void QueryType(QueryEnum value) { settings_.queryType = value; }
  /// The class, 1 for IN.
  std::int16_t QueryClass() const { return settings_.queryClass; }
  void QueryClass(std::int16_t value) { settings_.queryClass = value; }
  /// Name or address of the server; see FindDNSCLS for the system's.
  const std::string& DNSServer() const { return settings_.dnsServer; }
  void DNSServer(std::string value) { settings_.dnsServer = std::move(value); }
  /// Of DNSServer, 1 to 65,535; 53 if not set.
  std::int32_t DNSPort() const { return settings_.dnsPort; }
  void DNSPort(std::int32_t value) { settings_.dnsPort = value; }
  /// False: QueryDNS asks over TCP.
  bool UseUDP() const { return settings_.useUDP; }
  void UseUDP(bool value) { settings_.useUDP = value; }
  /// Whether the server is asked to ask others (RD).
  bool UseRecursion() const { return settings_.useRecursion; }
  void UseRecursion(bool value) { settings_.useRecursion = value; }
  /// The identifier of the queries, 0 to 65,535, which the reply must repeat; -1: a random one for
  /// each, from the system's source. Who can guess it, and the port, can forge a reply over UDP.
  std::int32_t QueryID() const { return settings_.queryId; }
  void QueryID(std::int32_t value) { settings_.queryId = value; }
  /// The largest datagram that may come, in bytes, 512 to 65,535, told to the server in an OPT
  /// record (EDNS(0), RFC 6891); 0: no such record is sent, and 512 is what may come. A server
  /// that knows no EDNS may refuse, with ReplyCode 1 mostly.
  std::int32_t UDPSize() const { return settings_.udpSize; }
  void UDPSize(std::int32_t value) { settings_.udpSize = value; }
  /// True: the server may send DNSSEC records too (RFC 3225). Needs an OPT record; where UDPSize is
  /// 0 it tells 1,232. Nothing is verified here.
  bool DNSSECOK() const { return settings_.dnssecOk; }
  void DNSSECOK(bool value) { settings_.dnssecOk = value; }
  /// True: a reply over UDP that was truncated is asked for again over TCP, and all results are
  /// those of the TCP exchange.
  bool FollowTruncation() const { return settings_.followTruncation; }
  void FollowTruncation(bool value) { settings_.followTruncation = value; }
  /// How often QueryDNS asks when no reply comes, and milliseconds between. One try waits 1.1
  /// seconds over UDP, and ten over TCP.
  std::int32_t RetryCount() const { return settings_.retryCount; }
  void RetryCount(std::int32_t value) { settings_.retryCount = value; }
  std::int32_t RetryPauseMilliSeconds() const { return settings_.retryPause; }
  void RetryPauseMilliSeconds(std::int32_t value) { settings_.retryPause = value; }
  /// Seconds for all that one query or transfer does, tries and pauses included: 10002 then; 0: no
  /// limit but those of each wait.
  std::int32_t TotalTimeout() const { return settings_.totalTimeout; }
  void TotalTimeout(std::int32_t value) { settings_.totalTimeout = value; }
  /// Bytes of memory that the records of a transfer may take: 10040 beyond, with the records that
  /// came before; 0 or below counts as the 2 GiB it has at first.
  std::int64_t MaxAnswer() const { return settings_.maxAnswer; }
  void MaxAnswer(std::int64_t value) { settings_.maxAnswer = value; }
  /// The caller's; not used here.
  const std::string& RootDomain() const { return rootDomain_; }
  void RootDomain(std::string value) { rootDomain_ = std::move(value); }

  /// Asks, up to RetryCount times. The two outputs are the properties of the same name.
  std::int16_t QueryDNS(bool* IsAuthoritativeAnswer = nullptr,
                        bool* IsRecursionAvailable = nullptr);

  /// Asks once, over TCP. With TYPE_AXFR the whole zone is read, ending with the SOA record that it
  /// began with; it may take as long as TotalTimeout, but never ten seconds without a byte. A
  /// transfer that ends early keeps the records that it has brought.
  std::int16_t QueryZone();

  // Results, all of the last query.

  /// The records of a section, counted from 1; null when there is none of this index. By key: the
  /// first record whose owner name it is, whatever the case. Valid until the next query.
  const DNSCLS* EntryAN(std::int32_t Index) const { return Entry(kAnswer, Index); }
  const DNSCLS* EntryAN(const std::string& Key) const { return Entry(kAnswer, Key); }
  const DNSCLS* EntryNS(std::int32_t Index) const { return Entry(kAuthority, Index); }
  const DNSCLS* EntryNS(const std::string& Key) const { return Entry(kAuthority, Key); }
  const DNSCLS* EntryAR(std::int32_t Index) const { return Entry(kAdditional, Index); }
  const DNSCLS* EntryAR(const std::string& Key) const { return Entry(kAdditional, Key); }
  const DNSCLS* Entry(std::int32_t Index) const { return EntryAN(Index); }
  const DNSCLS* Entry(const std::string& Key) const { return EntryAN(Key); }
  std::int32_t CountAN() const { return Size(kAnswer); }
  std::int32_t CountNS() const { return Size(kAuthority); }
  std::int32_t CountAR() const { return Size(kAdditional); }
  std::int32_t Count() const { return CountAN(); }
  /// The number of records read, over all three sections.
  std::int32_t CountAll() const { return CountAN() + CountNS() + CountAR(); }

  /// Flags of the reply. Over UDP IsTruncated is the TC bit: ask again with UseUDP(false). Over TCP
  /// it is the reserved bit of value 64 in the second flag byte.
  bool IsAuthoritativeAnswer() const { return isAuthoritative_; }
  bool IsRecursionAvailable() const { return isRecursionAvailable_; }
  bool IsTruncated() const { return isTruncated_; }

  /// True when the last exchange went over TCP.
  bool IsOverTCP() const { return isOverTcp_; }
  /// The server's response code (RFC 1035, section 4.1.1), with the upper bits that an OPT record
  /// holds; -1 when no reply came.
  std::int32_t ReplyCode() const { return replyCode_; }
  /// The OPT record of the reply; null when it had none that can be read, or none was sent. It is
  /// not among the additional records then. Valid until the next query.
  const EDNSCLS* EDNS() const { return opt_ ? &*opt_ : nullptr; }

  /// How the last call ended, 0 when it was good, and the text of that; see the head of this file.
  std::int32_t LastErr() const { return lastErr_; }
  const std::string& LastErrMsg() const { return lastErrMsg_; }
  /// The query and the reply as they were sent and received: over TCP the query with its length in
  /// front, the reply without; of a zone transfer the first message.
  const std::string& OutBuffer() const { return outBuffer_; }
  const std::string& InBuffer() const { return inBuffer_; }

  /// The text of a result code; stores both in LastErr and LastErrMsg.
  std::string TranslateDNSResult(std::int32_t res);

  /// True for a dotted IPv4 address; not for 255.255.255.255, whose number means none.
  bool IsIPNumber(const std::string& Address) const;

  /// End the running query with 9999, or with the last result when it pauses between two tries.
  /// Both are the same; any thread, signal-safe.
  void StopWaiting();
  void Kill();

 private:
  friend class DnsQuery;

  enum Section { kAnswer, kAuthority, kAdditional };
  struct Settings {
    std::string domain;
    bool escapeNames = false;
    QueryEnum queryType = TYPE_A;
    std::int16_t queryClass = 1;
    std::string dnsServer;
    std::int32_t dnsPort = 53;
    bool useUDP = true;
    bool useRecursion = true;
    std::int32_t queryId = 25;
    std::int32_t udpSize = 0;
    bool dnssecOk = false;
    bool followTruncation = false;
    std::int32_t retryCount = 3;
    std::int32_t retryPause = 333;
    std::int32_t totalTimeout = 0;
    std::int64_t maxAnswer = std::int64_t{2} << 30;
  };

  template <class Call>
  std::int16_t Run(Call call);
  const DNSCLS* Entry(Section section, std::int32_t index) const;
  const DNSCLS* Entry(Section section, const std::string& key) const;
  std::int32_t Size(Section section) const {
    return static_cast<std::int32_t>(records_[section].size());
  }

  std::shared_ptr<SocketModule> module_;
  std::shared_ptr<CallState> call_;
  Settings settings_;
  std::string rootDomain_;
  std::array<std::deque<DNSCLS>, 3> records_;
  bool areNamesEscaped_ = false;  // those of the records
  bool isAuthoritative_ = false;
  bool isRecursionAvailable_ = false;
  bool isTruncated_ = false;
  bool isOverTcp_ = false;
  std::int32_t replyCode_ = -1;
  std::optional<EDNSCLS> opt_;
  std::int32_t lastErr_ = 0;
  std::string lastErrMsg_;
  std::string outBuffer_;
  std::string inBuffer_;
};

}  // namespace netro
