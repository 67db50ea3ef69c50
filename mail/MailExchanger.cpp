#include "mail/MailExchanger.h"

#include <netro/Localization.h>
#include <netro/QueryDNSCLS.h>
#include <netro/SMTPCls.h>

#include <algorithm>
#include <utility>

#include "dns/DnsQuery.h"
#include "dns/DnsResult.h"
#include "dns/ServerLookup.h"
#include "mail/SmtpTables.h"
#include "mail/SmtpTranscript.h"
#include "platform/Address.h"
#include "platform/ErrorNumbers.h"
#include "platform/Random.h"
#include "socket/HostLookup.h"
#include "socket/SocketErrors.h"
#include "support/Text.h"

namespace netro {
namespace {

constexpr std::int32_t kTextLookup = 7006;
constexpr char kNoServer[] = "none";

std::string DefaultList(const SMTPValues& settings) {
  return settings.dnsServer.empty() ? std::string() : settings.dnsServer + ":53";
}

std::string SortKey(const DNSCLS& record) {
  const auto preference = static_cast<std::uint16_t>(record.Pref());  // held signed
  const std::string digits = "0000" + std::to_string(preference);
  return digits.substr(digits.size() - 4) + record.Data();
}

constexpr std::size_t kMostExchangers = 20;

struct Exchangers {
  const DNSCLS* best = nullptr;
  std::vector<const DNSCLS*> all;
  bool any = false;         // records, of use or not
  bool mailRefused = true;  // none of them names anything (RFC 7505)
};

Exchangers FindExchangers(const QueryDNSCLS& answer) {
  Exchangers found;
  for (std::int32_t i = 1; i <= answer.CountAN(); ++i) {
    const DNSCLS* record = answer.EntryAN(i);
    if (record->DataType() != TYPE_MX) continue;
    found.any = true;
    if (!record->Data().empty() && record->Data() != ".") found.mailRefused = false;
    if (!IsHostName(record->Data())) continue;
    found.all.push_back(record);
    if (found.best == nullptr || SortKey(*record) < SortKey(*found.best)) found.best = record;
  }
  return found;
}

// The least preference first, equal ones at random.
void PutInOrder(std::vector<const DNSCLS*>& records) {
  std::vector<std::pair<std::uint64_t, const DNSCLS*>> keyed;
  for (const DNSCLS* record : records) {
    const auto preference = static_cast<std::uint16_t>(record->Pref());
    keyed.emplace_back(std::uint64_t{preference} << 32 | RandomNumber(), record);
  }
  std::ranges::sort(keyed, {}, &std::pair<std::uint64_t, const DNSCLS*>::first);
  for (std::size_t i = 0; i < keyed.size(); ++i) records[i] = keyed[i].second;
  if (records.size() > kMostExchangers) records.resize(kMostExchangers);
}

// What a server knows outweighs that another could not tell, and that one is silent.
int Weight(std::int32_t error) {
  if (error == kErrNoDnsEntries || error == kDnsNoRecords || error == kDnsNullMx) return 3;
  return error == kErrTimedOut ? 1 : error == 0 ? 0 : 2;
}

std::string AdditionalAddress(const QueryDNSCLS& answer, const std::string& name) {
  for (std::int32_t i = 1; i <= answer.CountAR(); ++i) {
    const DNSCLS* record = answer.EntryAR(i);
    const std::string& address = record->Data();
    if (record->DataType() == TYPE_A && EqualsIgnoreCase(record->Query(), name) &&
        address != "0.0.0.0" && address != "255.255.255.255") {
      return address;
    }
  }
  return {};
}

// RFC 5321, section 4.1.3: "[192.0.2.1]" or "[IPv6:2001:db8::1]".
std::optional<IpAddress> ParseLiteral(std::string_view domain) {
  constexpr std::string_view kTag = "IPv6:";
  std::string_view text = domain.substr(1, domain.size() - 2);
  const bool v6 = StartsWithIgnoreCase(text, kTag);
  if (v6) text.remove_prefix(kTag.size());
  const auto address = ParseAddress(std::string(text));
  return address && address->IsIPv6() == v6 ? address : std::nullopt;
}

class ExchangerLookup {
 public:
  ExchangerLookup(const SMTPValues& settings, const std::string& domain, const CancelMark& mark,
                  const std::function<void(const std::string&)>& line, ExchangerChoice choice)
      : settings_(settings), domain_(domain), mark_(mark), line_(line), choice_(choice) {}

  MailExchanger Run() {
    if (domain_.starts_with('[') && domain_.ends_with(']')) return TakeLiteral();
    std::vector<DnsServer> servers;
    if (const std::int32_t error = LookupServers(settings_, mark_, servers)) Fail(kNoServer, error);
    for (const DnsServer& server : servers) {
      if (mark_.Cancelled() || Ask(server)) break;
    }
    return std::move(found_);
  }

 private:
  MailExchanger TakeLiteral() {
    if (const auto ip = ParseLiteral(domain_)) {
      found_.name = found_.address = FormatAddress(*ip);
      found_.all = {found_.name};
      found_.isGlue = true;
      Tell(kNoServer, GatewayText(found_.name, found_.address));
    } else {
      Fail(kNoServer, kErrNoDnsEntries);
    }
    return std::move(found_);
  }

  bool Ask(const DnsServer& server) {
    const std::string label = FormatEndpoint(server.host, server.port);
    QueryDNSCLS udp;
    QueryDNSCLS tcp;
    tcp.UseUDP(false);
    tcp.RetryCount(1);
    const QueryDNSCLS* answer = &udp;
    std::int32_t error = Query(udp, server);
    if (udp.IsTruncated()) {
      const std::int32_t whole = Query(tcp, server);
      if (whole == 0 || Weight(whole) == 3) {
        answer = &tcp;
        error = whole;
      }
    }
    Exchangers found = error == 0 ? FindExchangers(*answer) : Exchangers();
    if (found.best != nullptr) return Take(label, *answer, found);
    if (found.any) return Fail(label, found.mailRefused ? kDnsNullMx : kDnsNoRecords);
    if (answer->IsTruncated() && answer == &udp) return Fail(label, kErrTryAgain);
    return error == 0 || error == kDnsNoRecords ? TakeDomain(label) : Fail(label, error);
  }

  bool Take(const std::string& label, const QueryDNSCLS& answer, Exchangers& exchangers) {
    PutInOrder(exchangers.all);
    for (const DNSCLS* record : exchangers.all) {
      if (std::ranges::find(found_.all, record->Data()) == found_.all.end())
        found_.all.push_back(record->Data());
    }
    const bool byName = choice_ == ExchangerChoice::ByName;
    found_.name = byName ? exchangers.best->Data() : found_.all.front();
    found_.address = AdditionalAddress(answer, found_.name);
    found_.isGlue = !found_.address.empty();
    if (!found_.isGlue) found_.address = AskForAddress(found_.name).text;
    return Succeed(label);
  }

  // A domain without exchangers is its own, if it has an address (RFC 5321, section 5.1). The dot
  // keeps the system's search list away.
  bool TakeDomain(const std::string& label) {
    if (!IsHostName(domain_)) return Fail(label, kDnsNoRecords);
    const LookupAnswer answer = AskForAddress(domain_.ends_with('.') ? domain_ : domain_ + '.');
    const bool none = answer.error == kErrNoDnsEntries || answer.error == kErrNoData;
    if (answer.error != 0) return Fail(label, none ? kDnsNoRecords : answer.error);
    found_.name = domain_;
    found_.all = {domain_};
    found_.address = answer.text;
    return Succeed(label);
  }

  bool Succeed(const std::string& label) {
    found_.dnsError = 0;
    Tell(label, GatewayText(found_.name, found_.address));
    return true;
  }

  // 0 or kDnsNoRecords when the server knows the domain, kErrNoDnsEntries when there is none,
  // kErrTryAgain when it could not tell.
  std::int32_t Query(QueryDNSCLS& dns, const DnsServer& server) {
    dns.Domain(domain_);
    dns.QueryType(TYPE_MX);
    dns.DNSServer(server.host);
    dns.DNSPort(server.port);
    dns.QueryID(-1);  // at random: who could guess it would tell where mail goes
    DnsQuery query(dns, mark_);
    const std::int32_t error = query.Run();
    if (error == 0 || dns.ReplyCode() < 0) return error;
    if (query.WasMalformed()) return kErrTryAgain;
    if (dns.ReplyCode() == kDnsNameError) return kErrNoDnsEntries;
    const bool empty = error == kErrNoDnsEntries || error == kDnsNoRecords;
    return dns.ReplyCode() == 0 && empty ? static_cast<std::int32_t>(kDnsNoRecords) : kErrTryAgain;
  }

  LookupAnswer AskForAddress(const std::string& host) {
    const auto deadline = MillisecondsFromNow(StepTimeOut(settings_.timeOuts, SMTP_STEP_DNS));
    const LookupSettings lookup{NameServers(settings_), settings_.preference};
    return ResolveHost(host, lookup, mark_, deadline);
  }

  bool Fail(const std::string& server, std::int32_t error) {
    if (Weight(error) >= Weight(found_.dnsError)) found_.dnsError = error;
    Tell(server, SocketErrorText(error));
    return false;
  }

  void Tell(const std::string& server, const std::string& text) {
    line_(GetMessageText(kTextLookup, {server, text}));
  }

  const SMTPValues& settings_;
  const std::string& domain_;
  const CancelMark& mark_;
  const std::function<void(const std::string&)>& line_;
  const ExchangerChoice choice_;
  MailExchanger found_;
};

}  // namespace

std::optional<std::string> NameServers(const SMTPValues& settings) {
  if (!settings.dnsURL || !settings.dnsURL->empty()) return settings.dnsURL;
  return DefaultList(settings);
}

std::int32_t LookupServers(const SMTPValues& settings, const CancelMark& mark,
                           std::vector<DnsServer>& servers) {
  std::string list = settings.dnsURL ? *settings.dnsURL : DefaultHostLookup().DefaultServers(mark);
  if (list.empty()) list = DefaultList(settings);
  auto parsed = ParseServerList(list);
  if (!parsed) return kErrInvalidArgument;
  servers = std::move(*parsed);
  return servers.empty() ? static_cast<std::int32_t>(kDnsNoServer) : 0;
}

MailExchanger FindMailExchanger(const SMTPValues& settings, const std::string& domain,
                                const CancelMark& mark,
                                const std::function<void(const std::string&)>& line,
                                ExchangerChoice choice) {
  return ExchangerLookup(settings, domain, mark, line, choice).Run();
}

}  // namespace netro
