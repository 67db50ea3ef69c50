// Reads what a DNS server sends. The first byte chooses: even is one datagram; odd is a TCP stream
// with a zone transfer, say, which is fed whole and in pieces that must give the same messages, and
// the same records when all go into one reply.

#include "dns/DnsMessage.h"
#include "dns/DnsName.h"
#include "dns/DnsStream.h"
#include "fuzz/Fuzz.h"

namespace {

using netro::Bytes;
using netro::DnsReply;

constexpr std::size_t kSmallestRecord = 11;
constexpr std::size_t kLongestName = 253;  // as text

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

std::vector<Bytes> Messages(FuzzBytes stream, const FuzzCuts& cuts) {
  std::vector<Bytes> messages;
  netro::DnsStream framing;
  cuts.Apply(stream, [&](FuzzBytes piece) {
    framing.Feed(piece, [&](FuzzBytes message) {
      messages.emplace_back(message.begin(), message.end());
    });
  });
  return messages;
}

void ReadStream(FuzzBytes stream) {
  const FuzzCuts cuts(stream);
  FuzzBytes none;
  const std::vector<Bytes> messages = Messages(stream, FuzzCuts(none));
  Require(Messages(stream, cuts) == messages);
  Bytes again;
  DnsReply transfer;
  std::size_t count = 0;
  for (const Bytes& message : messages) {
    const Bytes framed = netro::WithLength(message);
    again.insert(again.end(), framed.begin(), framed.end());
    DnsReply alone;
    const bool good = netro::ReadReply(message, alone);
    Require(good == netro::ReadReply(message, transfer));
    CheckEscaped(message, alone, good);
    Require(transfer.Count() == (count += alone.Count()));
  }
  Require(std::equal(again.begin(), again.end(), stream.begin()));
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  FuzzBytes bytes(data, size);
  if ((TakeByte(bytes) & 1) == 0) {
    ReadMessage(Bytes(bytes.begin(), bytes.end()));
  } else {
    ReadStream(bytes);
  }
  return 0;
}
