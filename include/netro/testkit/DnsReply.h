// Builds DNS messages (RFC 1035, section 4) piece by piece, right or wrong as the test wants them.
// Thread: any, one object on one thread at a time.
//
//   DnsReply(query).Answer(dns::Record(dns::kQuestion, 1, "\x7F\0\0\x01"s)).Bytes()
#pragma once

#include <netro/Export.h>

#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <string>

namespace netro::testkit {
namespace dns {

/// Bytes as numbers.
NETRO_EXPORT std::string Octets(std::initializer_list<int> values);
/// 16 bits in network order.
NETRO_EXPORT std::string U16(std::size_t value);
/// The same of 32 bits.
NETRO_EXPORT std::string U32(std::uint32_t value);

/// A dotted text as labels without compression; empty is the root.
NETRO_EXPORT std::string Name(const std::string& dotted);
/// A compression pointer.
NETRO_EXPORT std::string Pointer(std::size_t offset);
/// The pointer to the name of the question.
inline const std::string kQuestion = Pointer(12);
/// A string with its length in front (section 3.3).
NETRO_EXPORT std::string Text(const std::string& bytes);

/// A record; `owner` is an encoded name.
NETRO_EXPORT std::string Record(const std::string& owner, int type, const std::string& rdata,
                                std::uint32_t ttl = 300, int dnsClass = 1);
/// An SOA's data with the mailbox "hostmaster.test" and small numbers.
NETRO_EXPORT std::string Soa(const std::string& primary = "ns.test", std::uint32_t serial = 1);

/// The name that a query asks for, in small letters with dots between its labels.
NETRO_EXPORT std::string QuestionName(const std::string& query);
/// The type that it asks for.
NETRO_EXPORT int QuestionType(const std::string& query);

/// A message behind its length, as on TCP (section 4.2.2).
NETRO_EXPORT std::string Framed(const std::string& message);

}  // namespace dns

/// A reply to a query: its ID and question, QR, RA and its RD set, and records as they are added.
class NETRO_EXPORT DnsReply {
 public:
  /// `query` is the message that is answered, without the length of TCP.
  explicit DnsReply(const std::string& query);

  /// Another ID than the query's, and the two bytes of flags as they are to stand there.
  DnsReply& Id(int id);
  DnsReply& Flags(int first, int second);
  /// The response code, the other flags as they are.
  DnsReply& Code(int rcode);
  /// What stands behind the header instead of the query's question; `count` is QDCOUNT.
  DnsReply& Question(const std::string& bytes, int count = 1);

  /// Appends a record and counts it in its section. Records go in this order.
  DnsReply& Answer(const std::string& record) { return Add(6, record); }
  DnsReply& Authority(const std::string& record) { return Add(8, record); }
  DnsReply& Additional(const std::string& record) { return Add(10, record); }
  /// An ANCOUNT that lies.
  DnsReply& AnswerCount(int count) { return Put16(6, count); }

  /// Where the next record begins.
  std::size_t Size() const { return bytes_.size(); }
  /// The message so far.
  const std::string& Bytes() const { return bytes_; }

 private:
  DnsReply& Put16(std::size_t at, int value);
  DnsReply& Add(std::size_t counter, const std::string& record);

  std::string bytes_;
};

}  // namespace netro::testkit
