// Reads what a DNS server sends. The first byte chooses: even is one datagram; odd is a TCP stream,
// which is fed whole and in two pieces that must give the same messages.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <span>
#include <string>
#include <vector>

#include "dns/DnsMessage.h"
#include "dns/DnsName.h"
#include "dns/DnsStream.h"

namespace {

using netro::Bytes;
using netro::DnsReply;

constexpr std::size_t kSmallestRecord = 11;
constexpr std::size_t kLongestName = 253;  // as text

void Require(bool condition) {
  if (!condition) std::abort();
}

// Escaped names are printable, and give the same names when they are read back. The OPT record is
// the only one that may be missing.
void CheckEscaped(const Bytes& message, const DnsReply& plain, bool good) {
  DnsReply reply(netro::DnsReading{netro::NameForm::Escaped, true});
  Require(netro::ReadReply(message, reply) == good);
  Require(reply.Count() + (reply.opt ? 1 : 0) == plain.Count());
  for (std::size_t i = 0; i < reply.records[0].size(); ++i) {
    const std::string& name = reply.records[0][i].Query();
    for (const char c : name) Require(c > ' ' && c <= '~');
    netro::ByteWriter wire;
    Require(name.empty() || netro::WriteName(name, wire, netro::NameForm::Escaped));
    netro::ByteReader reader(wire.Data());
    std::string again;
    Require(name.empty() || netro::ReadName(wire.Data(), reader, again));
    Require(again == plain.records[0][i].Query());
  }
}

void ReadMessage(const Bytes& message) {
  static const Bytes kQuery = *netro::ComposeQuery({"www.test", netro::TYPE_A, 1, true});
  netro::AnswersQuery(message, kQuery);
  netro::ContinuesAnswer(message, kQuery);
  netro::IsBareRefusal(message, kQuery);
  DnsReply once;
  const bool good = netro::ReadReply(message, once);
  Require(good || once.Count() == 0);
  Require(once.Count() * kSmallestRecord <= message.size());
  for (const auto& section : once.records)
    for (const netro::DNSCLS& record : section) Require(record.Query().size() <= kLongestName);
  CheckEscaped(message, once, good);
  DnsReply twice = once;
  Require(netro::ReadReply(message, twice) == good && twice.Count() == 2 * once.Count());
}

std::vector<Bytes> Messages(std::span<const std::uint8_t> stream, std::size_t cut) {
  std::vector<Bytes> messages;
  const auto take = [&](std::span<const std::uint8_t> message) {
    messages.emplace_back(message.begin(), message.end());
  };
  netro::DnsStream framing;
  framing.Feed(stream.first(cut), take);
  framing.Feed(stream.subspan(cut), take);
  return messages;
}

void ReadStream(std::span<const std::uint8_t> stream, std::size_t cut) {
  const std::vector<Bytes> messages = Messages(stream, 0);
  Require(Messages(stream, cut) == messages);
  Bytes again;
  for (const Bytes& message : messages) {
    const Bytes framed = netro::WithLength(message);
    again.insert(again.end(), framed.begin(), framed.end());
    ReadMessage(message);
  }
  Require(std::equal(again.begin(), again.end(), stream.begin()));
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size == 0) return 0;
  const std::span bytes(data + 1, size - 1);
  if ((data[0] & 1) == 0) {
    ReadMessage(Bytes(bytes.begin(), bytes.end()));
  } else {
    ReadStream(bytes, bytes.size() * (data[0] >> 1) / 128);
  }
  return 0;
}
