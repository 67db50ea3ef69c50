#include <netro/testkit/DnsReply.h>

#include <algorithm>

namespace netro::testkit {
namespace dns {

std::string Octets(std::initializer_list<int> values) {
  std::string bytes;
  for (const int value : values) bytes += static_cast<char>(value);
  return bytes;
}

std::string U16(std::size_t value) {
  return {static_cast<char>(value >> 8 & 255), static_cast<char>(value & 255)};
}

std::string U32(std::uint32_t value) { return U16(value >> 16) + U16(value & 65535); }

std::string Name(const std::string& dotted) {
  std::string bytes;
  for (std::size_t begin = 0; begin < dotted.size();) {
    const std::size_t end = std::min(dotted.find('.', begin), dotted.size());
    bytes += Text(dotted.substr(begin, end - begin));
    begin = end + 1;
  }
  return bytes + '\0';
}

std::string Pointer(std::size_t offset) { return U16(0xC000 + offset); }

std::string Text(const std::string& bytes) { return static_cast<char>(bytes.size()) + bytes; }

std::string Record(const std::string& owner, int type, const std::string& rdata, std::uint32_t ttl,
                   int dnsClass) {
  return owner + U16(static_cast<std::size_t>(type)) + U16(static_cast<std::size_t>(dnsClass)) +
         U32(ttl) + U16(rdata.size()) + rdata;
}

std::string Soa(const std::string& primary, std::uint32_t serial) {
  return Name(primary) + Name("hostmaster.test") + U32(serial) + U32(2) + U32(3) + U32(4) + U32(5);
}

std::string QuestionName(const std::string& query) {
  std::string name;
  for (std::size_t at = 12; at < query.size() && query[at] != 0;) {
    const std::size_t length = static_cast<std::uint8_t>(query[at]);
    name += (name.empty() ? "" : ".") + query.substr(at + 1, length);
    at += 1 + length;
  }
  for (char& c : name) {
    if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
  }
  return name;
}

int QuestionType(const std::string& query) {
  const std::size_t end = query.find('\0', 12);
  if (end == query.npos || end + 2 >= query.size()) return 0;
  return static_cast<std::uint8_t>(query[end + 1]) * 256 +
         static_cast<std::uint8_t>(query[end + 2]);
}

std::string Framed(const std::string& message) { return U16(message.size()) + message; }

}  // namespace dns

// The question ends behind its name's zero byte, type and class; there may be an OPT record behind.
DnsReply::DnsReply(const std::string& query) : bytes_(query) {
  bytes_.resize(std::max<std::size_t>(bytes_.size(), 12));
  std::size_t end = 12;
  while (end < bytes_.size() && bytes_[end] != 0)
    end += static_cast<std::uint8_t>(bytes_[end]) + 1u;
  bytes_.resize(end < bytes_.size() ? std::min(bytes_.size(), end + 5) : 12);
  const int recursion = query.size() > 2 ? query[2] & 1 : 0;
  Put16(10, 0);  // an OPT record of the query is none of the reply's
  Flags(0x80 | recursion, 0x80);
  Put16(10, 0);
}

DnsReply& DnsReply::Id(int id) { return Put16(0, id); }

DnsReply& DnsReply::Flags(int first, int second) { return Put16(2, first * 256 + second); }

DnsReply& DnsReply::Code(int rcode) {
  bytes_[3] = static_cast<char>((bytes_[3] & 0xF0) | rcode);
  return *this;
}

DnsReply& DnsReply::Question(const std::string& bytes, int count) {
  bytes_.resize(12);
  bytes_ += bytes;
  return Put16(4, count);
}

DnsReply& DnsReply::Put16(std::size_t at, int value) {
  bytes_.replace(at, 2, dns::U16(static_cast<std::size_t>(value)));
  return *this;
}

DnsReply& DnsReply::Add(std::size_t counter, const std::string& record) {
  const int before = static_cast<std::uint8_t>(bytes_[counter]) * 256 +
                     static_cast<std::uint8_t>(bytes_[counter + 1]);
  bytes_ += record;
  return Put16(counter, before + 1);
}

}  // namespace netro::testkit
