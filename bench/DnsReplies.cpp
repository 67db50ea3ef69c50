// Numbers are written most significant byte first. Nothing of the library is used.

#include "bench/DnsReplies.h"

#include <array>
#include <cstdio>

namespace netro::bench {
namespace {

constexpr std::size_t kHeaderSize = 12;
constexpr std::size_t kTypeAndClass = 4;
constexpr std::size_t kMostBytes = 65'000;  // leaves room for the header and any question
constexpr std::string_view kQuestionName = "\xC0\x0C";

enum Type : std::uint16_t { Ns = 2, Cname = 5, Soa = 6, Txt = 16, Aaaa = 28, Srv = 33 };

std::string U16(std::size_t value) {
  return {static_cast<char>(value >> 8), static_cast<char>(value)};
}

std::string U32(std::size_t value) { return U16(value >> 16) + U16(value); }

std::string Counted(const std::string& text) { return static_cast<char>(text.size()) + text; }

/// A name of one more label than the question's.
std::string Below(const std::string& label) { return Counted(label).append(kQuestionName); }

std::string Address(int number) { return U32(0x0A000000u + static_cast<unsigned>(number)); }

/// A record of class IN that lives an hour.
void Append(Records& records, std::string_view owner, std::uint16_t type, const std::string& data) {
  records.bytes.append(owner).append(U16(type)).append(U16(1)).append(U32(3600));
  records.bytes.append(U16(data.size())).append(data);
  ++records.count;
}

std::string HostName(int number) { return Below("host" + std::to_string(number % 10)); }

void AppendAddress(Records& records, int number) {
  Append(records, kQuestionName, kTypeA, Address(number));
}

void AppendMailServer(Records& records, int number) {
  Append(records, kQuestionName, kTypeMx, U16(10) + HostName(number));
}

void AppendMixed(Records& records, int number) {
  const std::string host = HostName(number);
  AppendAddress(records, number);
  Append(records, kQuestionName, Aaaa, U32(0x20010DB8) + U32(0) + U32(0) + Address(number));
  Append(records, kQuestionName, Ns, host);
  Append(records, kQuestionName, Cname, host);
  AppendMailServer(records, number);
  Append(records, kQuestionName, Txt, Counted("v=spf1 include:_spf.mail.test ~all"));
  Append(records, kQuestionName, Srv, U16(1) + U16(5) + U16(5060) + host);
}

}  // namespace

Records OneAddress() {
  Records records;
  AppendAddress(records, 1);
  return records;
}

Records ManyRecords(std::uint16_t type) {
  const auto append = type == kTypeA    ? AppendAddress
                      : type == kTypeMx ? AppendMailServer
                                        : AppendMixed;
  Records one;
  append(one, 0);
  Records records;
  while (records.bytes.size() + one.bytes.size() <= kMostBytes) {
    append(records, records.count);
  }
  return records;
}

Records ZoneStart() {
  Records records;
  const std::string numbers = U32(2026010101) + U32(7200) + U32(900) + U32(1209600) + U32(300);
  Append(records, kQuestionName, Soa, Below("ns1") + Below("hostmaster") + numbers);
  return records;
}

Records ZoneHosts(int first, int count) {
  Records records;
  std::array<char, 16> label;
  for (int number = first; number < first + count; ++number) {
    std::snprintf(label.data(), label.size(), "h%07d", number);
    Append(records, Below(label.data()), kTypeA, Address(number));
  }
  return records;
}

std::string_view QuestionOf(std::string_view query) {
  const std::size_t root = query.find('\0', kHeaderSize);
  const std::size_t end = root + 1 + kTypeAndClass;
  if (root == query.npos || query.size() < end) {
    return {};
  }
  return query.substr(kHeaderSize, end - kHeaderSize);
}

std::uint16_t TypeOf(std::string_view question) {
  const std::string_view type = question.substr(question.size() - kTypeAndClass, 2);
  return static_cast<std::uint16_t>(static_cast<unsigned char>(type[0]) << 8 |
                                    static_cast<unsigned char>(type[1]));
}

std::string ComposeReply(std::string_view query, const Records& answers) {
  const std::string flags = U16(0x8580);  // authoritative, recursion desired and available
  std::string reply(query.substr(0, 2));
  reply += flags + U16(1) + U16(static_cast<std::size_t>(answers.count)) + U32(0);
  return reply.append(QuestionOf(query)).append(answers.bytes);
}

std::string ComposeStreamReply(std::string_view query, const Records& answers) {
  const std::string reply = ComposeReply(query, answers);
  return U16(reply.size()) + reply;
}

}  // namespace netro::bench
