#include "dns/Delegation.h"

#include <netro/RecordText.h>

#include <algorithm>
#include <optional>

#include "dns/DnsLookup.h"
#include "dns/DnsSections.h"

namespace netro::tool {
namespace {

constexpr std::size_t kMostServers = 20;
constexpr std::size_t kMostAddresses = 4;  // of one server
constexpr std::int32_t kNoSuchName = 3;

const DnsSection& kAnswers = kDnsSections[0];
const DnsSection& kAuthorities = kDnsSections[1];
const DnsSection& kAdditionals = kDnsSections[2];

bool HasAnswer(const QueryDNSCLS& query, const ZoneQuestion& question) {
  bool found = false;
  ForEachRecord(query, kAnswers, [&](const DNSCLS& record) {
    const bool wanted = record.DataType() == question.type || question.type == TYPE_ALL ||
                        record.DataType() == TYPE_CNAME;
    found = found || (wanted && ComparedName(record.Query()) == question.name);
  });
  return found;
}

/// The zone that the reply refers to; empty when it is none that its sender may delegate. `other`
/// is one of those then.
std::string DelegatedZone(const QueryDNSCLS& query, const ZoneQuestion& question,
                          std::string& other) {
  std::string zone;
  ForEachRecord(query, kAuthorities, [&](const DNSCLS& record) {
    if (record.DataType() != TYPE_NS || !zone.empty()) return;
    const std::string owner = ComparedName(record.Query());
    const bool isBelow = owner != question.zone && IsWithin(owner, question.zone);
    (isBelow && IsWithin(question.name, owner) ? zone : other) = owner;
  });
  return zone;
}

void TakeServers(const QueryDNSCLS& query, ZoneReply& reply) {
  ForEachRecord(query, kAuthorities, [&](const DNSCLS& record) {
    if (record.DataType() != TYPE_NS || ComparedName(record.Query()) != reply.zone) return;
    const std::string name = ComparedName(record.Data());
    if (std::ranges::find(reply.servers, name, &NameServer::name) != reply.servers.end()) return;
    if (reply.servers.size() == kMostServers) {
      ++reply.leftOut;
      return;
    }
    reply.servers.push_back({name, {}});
    reply.records.push_back(record);
  });
}

void TakeAddresses(const QueryDNSCLS& query, std::string_view parent, ZoneReply& reply) {
  std::vector<DNSCLS> records;
  ForEachRecord(query, kAdditionals, [&](const DNSCLS& record) { records.push_back(record); });
  for (NameServer& server : reply.servers) {
    if (IsWithin(server.name, parent)) server.addresses = AddressesOf(server.name, records);
  }
}

ZoneReply Useless(std::string why) {
  ZoneReply reply;
  reply.why = std::move(why);
  return reply;
}

std::string FirstSentence(const std::string& text) {
  const std::string sentence = text.substr(0, text.find(". "));
  return sentence.substr(0, sentence.size() - (sentence.ends_with('.') ? 1 : 0));
}

ZoneReply Final(ReplyKind kind) {
  ZoneReply reply;
  reply.kind = kind;
  return reply;
}

}  // namespace

std::string ComparedName(std::string_view name) {
  std::string text = RecordNameText(name);
  for (char& c : text) c = static_cast<char>(c >= 'A' && c <= 'Z' ? c + ('a' - 'A') : c);
  return text;
}

bool IsWithin(std::string_view name, std::string_view zone) {
  if (zone == "." || name == zone) return true;
  if (!name.ends_with(zone) || name.size() < zone.size() + 2) return false;
  std::string_view above = name.substr(0, name.size() - zone.size());
  if (!above.ends_with('.')) return false;
  above.remove_suffix(1);
  const std::size_t backslashes = above.size() - (above.find_last_not_of('\\') + 1);
  return backslashes % 2 == 0;  // else the dot is part of a label
}

ZoneReply ReadZoneReply(const QueryDNSCLS& query, const ZoneQuestion& question) {
  const auto header = HeaderOf(query);
  if (!header) return Useless(FirstSentence(query.LastErrMsg()));
  const bool authoritative = query.IsAuthoritativeAnswer();
  const std::int32_t code = query.ReplyCode();
  if (code == kNoSuchName && authoritative) return Final(ReplyKind::NoName);
  if (code != 0) return Useless("answered " + header->status);
  if (HasAnswer(query, question)) return Final(ReplyKind::Answer);
  ZoneReply reply;
  std::string other;
  reply.zone = DelegatedZone(query, question, other);
  if (reply.zone.empty()) {
    if (authoritative) return Final(ReplyKind::NoRecord);
    return Useless(other.empty() ? "gave neither an answer nor a referral"
                                 : "refers to " + other + ", which leads nowhere");
  }
  reply.kind = ReplyKind::Referral;
  TakeServers(query, reply);
  TakeAddresses(query, question.zone, reply);
  return reply;
}

std::vector<std::string> AddressesOf(std::string_view name, const std::vector<DNSCLS>& records) {
  std::vector<std::string> addresses;
  for (const DNSCLS& record : records) {
    const bool isAddress = record.DataType() == TYPE_A || record.DataType() == TYPE_AAAA;
    if (!isAddress || ComparedName(record.Query()) != name) continue;
    const std::string address = RecordDataText(record);
    if (std::ranges::find(addresses, address) != addresses.end()) continue;
    if (addresses.size() < kMostAddresses) addresses.push_back(address);
  }
  return addresses;
}

}  // namespace netro::tool
