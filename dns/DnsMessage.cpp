#include "dns/DnsMessage.h"

#include <algorithm>

#include "dns/DnsOpt.h"
#include "dns/DnsRecord.h"
#include "platform/Address.h"
#include "support/Text.h"

namespace netro {
namespace {

constexpr std::size_t kHeaderSize = 12;
constexpr std::size_t kTypeAndClass = 4;
constexpr std::uint16_t kInternet = 1;
constexpr std::size_t kOptSize = 11;
constexpr std::uint8_t kReplyBit = 128;

// An address by the name that its PTR record has: "3.2.1.10.in-addr.arpa" for "10.1.2.3", and the
// half bytes of an IPv6 address likewise below ip6.arpa (RFC 3596, section 2.5).
std::string ReverseName(const IpAddress& address) {
  constexpr char kDigits[] = "0123456789abcdef";
  std::string name;
  const auto bytes = address.Bytes();
  for (auto byte = bytes.rbegin(); byte != bytes.rend(); ++byte) {
    if (address.IsIPv4()) {
      name += std::to_string(*byte) + '.';
    } else {
      name += {kDigits[*byte & 15], '.', kDigits[*byte >> 4], '.'};
    }
  }
  return name + (address.IsIPv4() ? "in-addr.arpa" : "ip6.arpa");
}

// Length bytes of labels are no letters, so names compare as texts.
bool SameName(std::span<const std::uint8_t> a, std::span<const std::uint8_t> b) {
  const auto text = [](std::span<const std::uint8_t> bytes) {
    return std::string_view(reinterpret_cast<const char*>(bytes.data()), bytes.size());
  };
  return text(a) == text(b) || EqualsIgnoreCase(text(a), text(b));
}

bool SkipQuestions(std::span<const std::uint8_t> message, ByteReader& reader,
                   std::uint16_t questions) {
  std::string name;
  for (; questions > 0; --questions) {
    if (!ReadName(message, reader, name)) return false;
    reader.Skip(kTypeAndClass);
  }
  return reader.Ok();
}

// The question of a query, where it is the first name and so has no pointers.
std::span<const std::uint8_t> QuestionOf(std::span<const std::uint8_t> query) {
  ByteReader reader(query.subspan(kHeaderSize));
  while (const std::uint8_t size = reader.U8()) reader.Skip(size);
  return query.subspan(kHeaderSize, reader.Position() + kTypeAndClass);
}

// Counts come from the peer: records are taken as they prove to be there. The first OPT record goes
// to `opt`, where that is wanted.
bool ReadSection(std::span<const std::uint8_t> message, ByteReader& reader,
                 const DnsReading& reading, std::uint16_t count, std::deque<DNSCLS>& records,
                 std::optional<EDNSCLS>* opt) {
  for (; count > 0; --count) {
    const ByteReader here = reader;
    std::uint16_t classNumber = 0;
    if (!ReadRecord(message, reader, reading.form, records.emplace_back(), classNumber)) {
      return false;
    }
    const bool taken = opt != nullptr && !*opt && (*opt = ReadOpt(here));
    // An OPT record has something else there.
    const bool foreign = reading.onlyInternet && classNumber != kInternet &&
                         (records.empty() || records.back().DataType() != kTypeOpt);
    if (taken || foreign) records.pop_back();
  }
  return true;
}

// Takes back what was appended, unless it is to be kept; also when memory runs out.
class Appending {
 public:
  explicit Appending(DnsRecords& records) : records_(records) {
    std::ranges::transform(records, before_.begin(), &std::deque<DNSCLS>::size);
  }
  ~Appending() {
    for (std::size_t section = 0; !kept_ && section < records_.size(); ++section) {
      records_[section].resize(before_[section]);
    }
  }
  Appending(const Appending&) = delete;
  Appending& operator=(const Appending&) = delete;

  void Keep() { kept_ = true; }

 private:
  DnsRecords& records_;
  std::array<std::size_t, DnsReply::Sections> before_;
  bool kept_ = false;
};

struct Header {
  DnsFlags flags;
  std::uint16_t questions = 0;
};

// False when it is not that of a reply with the query's ID.
bool ReadHeader(std::span<const std::uint8_t> message, std::span<const std::uint8_t> query,
                Header& header) {
  ByteReader reader(message);
  const bool sameId = reader.U16() == ByteReader(query).U16();
  header.flags.first = reader.U8();
  header.flags.second = reader.U8();
  header.questions = reader.U16();
  return reader.Ok() && sameId && (header.flags.first & kReplyBit) != 0;
}

}  // namespace

std::string QuestionName(const DnsQuestion& question) {
  const auto ip = question.type == TYPE_PTR ? ParseAddress(question.domain) : std::nullopt;
  return ip ? ReverseName(*ip) : question.domain;
}

std::optional<Bytes> ComposeQuery(const DnsQuestion& question) {
  const bool hasOpt = question.udpSize > 0;
  ByteWriter writer(kHeaderSize + question.domain.size() + 2 + kTypeAndClass + kOptSize);
  writer.U16(question.id);
  writer.U8(question.recursion ? 1 : 0);
  writer.U8(0);
  writer.U16(1);
  writer.U16(0);
  writer.U16(0);
  writer.U16(hasOpt ? 1 : 0);
  if (!WriteName(QuestionName(question), writer, question.form)) return std::nullopt;
  writer.U16(static_cast<std::uint16_t>(question.type));
  writer.U16(question.classNumber);
  if (hasOpt) WriteOpt(question.udpSize, question.dnssecOk, writer);
  return writer.Take();
}

bool AnswersQuery(std::span<const std::uint8_t> message, std::span<const std::uint8_t> query) {
  Header header;
  if (!ReadHeader(message, query, header)) return false;
  const auto asked = QuestionOf(query);
  if (header.questions != 1 || message.size() < kHeaderSize + asked.size()) return false;
  const auto answered = message.subspan(kHeaderSize, asked.size());
  return SameName(asked.first(asked.size() - kTypeAndClass),
                  answered.first(asked.size() - kTypeAndClass)) &&
         std::ranges::equal(asked.last(kTypeAndClass), answered.last(kTypeAndClass));
}

bool ContinuesAnswer(std::span<const std::uint8_t> message, std::span<const std::uint8_t> query) {
  Header header;
  return ReadHeader(message, query, header) &&
         (header.questions == 0 || AnswersQuery(message, query));
}

bool IsBareRefusal(std::span<const std::uint8_t> message, std::span<const std::uint8_t> query) {
  Header header;
  return ReadHeader(message, query, header) && header.questions == 0 && header.flags.Code() != 0;
}

bool ReadReply(std::span<const std::uint8_t> message, DnsReply& reply) {
  ByteReader reader(message);
  reader.Skip(2);
  reply.flags.first = reader.U8();
  reply.flags.second = reader.U8();
  const std::uint16_t questions = reader.U16();
  std::uint16_t counts[DnsReply::Sections];
  for (std::uint16_t& count : counts) count = reader.U16();

  Appending appending(reply.records);
  std::optional<EDNSCLS> opt;
  bool ok = reader.Ok() && SkipQuestions(message, reader, questions);
  for (std::size_t section = 0; ok && section < reply.records.size(); ++section) {
    const bool mayHoldOpt = section == DnsReply::Additional && reply.reading.takeOpt;
    ok = ReadSection(message, reader, reply.reading, counts[section], reply.records[section],
                     mayHoldOpt ? &opt : nullptr);
  }
  if (!ok) return false;
  if (opt) reply.opt = std::move(opt);
  appending.Keep();
  return true;
}

}  // namespace netro
