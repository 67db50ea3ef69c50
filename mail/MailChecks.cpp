// The blocking calls of SendMailCls beside the delivery: address checks and lookups for domains.
#include <netro/QueryDNSCLS.h>

#include <utility>

#include "dns/DnsQuery.h"
#include "mail/AddressSyntax.h"
#include "mail/MailAddress.h"
#include "mail/MailCall.h"
#include "mail/MailExchanger.h"
#include "mail/SmtpTranscript.h"
#include "support/Text.h"

namespace netro {
namespace {

constexpr std::int32_t kTextDnsError = 4002;
constexpr std::int32_t kTextTimeOuts = 6010;

// The zone's own record, or that of the zone that the name belongs to (RFC 2308, section 2).
const DNSCLS* StartOfAuthority(const QueryDNSCLS& dns) {
  for (std::int32_t i = 1; i <= dns.CountAN(); ++i) {
    if (dns.EntryAN(i)->DataType() == TYPE_SOA) return dns.EntryAN(i);
  }
  for (std::int32_t i = 1; i <= dns.CountNS(); ++i) {
    if (dns.EntryNS(i)->DataType() == TYPE_SOA) return dns.EntryNS(i);
  }
  return nullptr;
}

// Empty for a mailbox that could not stand in an address as it is.
std::string AddressOfMailbox(std::string mailbox, const std::string& host) {
  const bool clean = CharFilter(mailbox, 32, 126) == mailbox &&
                     mailbox.find_first_of("<>()[]@,;:\\\"") == mailbox.npos;
  if (mailbox.empty() || !clean) return {};
  const std::size_t dot = mailbox.find('.');
  if (dot == mailbox.npos) return mailbox + '@' + host;
  mailbox[dot] = '@';
  return mailbox.ends_with('@') ? mailbox + host : mailbox;
}

}  // namespace

MailCall::MailCall(SendMailCls& owner)
    : owner_(owner),
      call_(owner.call_),
      mark_(owner.module_, owner.call_),
      settings_(owner.Values()),
      proxy_(owner.Proxy()) {}

bool MailCall::Fail(std::int32_t result, std::string message) {
  owner_.SetResult(result, std::move(message));
  return false;
}

SmtpOrder MailCall::Order(std::string from, std::string rcptTo) const {
  SmtpOrder order{settings_, proxy_, std::move(from), std::move(rcptTo), WaitClock::Monotonic, {}};
  // RFC 5321, section 4.5.3.2.6. Who gives up sooner sends again what the server is just taking; a
  // table of the caller's holds as it is.
  if (settings_.timeOuts == GetMessageText(kTextTimeOuts)) {
    order.settings.timeOuts.insert(0, "60:600,");
  }
  return order;
}

SmtpEvents MailCall::Events() const {
  const auto sink = [owner = &owner_, call = call_] {
    return call->alive ? owner->Events() : nullptr;
  };
  return {[sink](const std::string& line) {
            if (SMTPClsEvents* events = sink()) events->DisplayProtocol(line);
          },
          [sink](std::int32_t sent, std::int32_t total) {
            if (SMTPClsEvents* events = sink()) events->DataStatus(sent, total);
          },
          [sink] { return sink() != nullptr; }};
}

bool SendMailCls::CheckeMailAddressSyntax(const std::string& eMailAddress) {
  const std::int32_t rule = CheckAddressSyntax(eMailAddress, tlds_);
  return SetResult(rule, GetMessageText(kTextAddressRule + rule));
}

bool SendMailCls::CheckeMailAddress(const std::string& eMailAddress, const std::string& Sender,
                                    const std::string& SenderHostName) {
  return MailCall::Run(
      *this, [&](MailCall& call) { return call.Check(eMailAddress, Sender, SenderHostName); });
}

bool MailCall::Check(const std::string& address, const std::string& sender,
                     const std::string& senderHostName) {
  if (!owner_.CheckeMailAddressSyntax(address)) return false;
  const std::string from = ExtractAddress(sender).address;
  SmtpOrder order = Order(from.empty() ? sender : from, ExtractAddress(address).address);
  order.settings.simulation = true;
  if (!senderHostName.empty()) order.settings.senderHostName = senderHostName;
  const auto session = std::make_shared<SmtpResult>();
  SmtpData none({}, DotRule::AllDots);
  const bool done = RunSmtpSession(order, none, mark_, session, Events());
  if (!call_->alive) return false;
  owner_.SetResult(session->result, session->resultMessage);
  return done || session->accepted >= SMTP_STEP_RCPTTO;
}

std::string SendMailCls::QueryGatewayName(const std::string& Host) {
  return MailCall::Run(*this,
                       [&](MailCall& call) { return call.Gateway(Host, MailCall::Part::Name); });
}

std::string SendMailCls::QueryGatewayIP(const std::string& Host) {
  return MailCall::Run(*this,
                       [&](MailCall& call) { return call.Gateway(Host, MailCall::Part::Address); });
}

std::string MailCall::Gateway(const std::string& domain, Part part) {
  SmtpOrder order = Order({}, "admin@" + domain);
  order.settings.receiverHostName.clear();
  const auto lookup = std::make_shared<SmtpResult>();
  const bool found = RunExchangerLookup(order, mark_, lookup);
  if (!call_->alive) return {};
  if (!found) return FailLookup(lookup->dnsError != 0 ? lookup->dnsError : lookup->result);
  const netro::Gateway gateway = FindGateway(lookup->protocol);
  const std::string& wanted = part == Part::Name ? gateway.name : gateway.address;
  if (wanted.empty()) return FailLookup(kErrNoDnsEntries);
  owner_.SetResult(0, {});
  return wanted;
}

std::string SendMailCls::GetMailAdminForeMail(const std::string& eMailAddress) {
  return MailCall::Run(*this, [&](MailCall& call) { return call.Administrator(eMailAddress); });
}

std::string MailCall::Administrator(const std::string& address) {
  const std::string host = ExtractAddress(address).host;
  if (host.empty()) {
    owner_.CheckeMailAddressSyntax(address);
    return {};
  }
  std::vector<DnsServer> servers;
  std::int32_t error = LookupServers(settings_, mark_, servers);
  std::string found;
  for (const DnsServer& server : servers) {
    if (mark_.Cancelled() || !found.empty()) break;
    error = AskForAdministrator(server, host, found);
  }
  if (!call_->alive) return {};
  if (found.empty()) return FailLookup(mark_.Cancelled() ? kErrCancelled : error);
  owner_.SetResult(0, {});
  return found;
}

std::int32_t MailCall::AskForAdministrator(const DnsServer& server, const std::string& host,
                                           std::string& found) const {
  QueryDNSCLS dns;
  dns.Domain(host);
  dns.QueryType(TYPE_SOA);
  dns.DNSServer(server.host);
  dns.DNSPort(server.port);
  dns.QueryID(-1);  // at random
  const std::int32_t error = DnsQuery(dns, mark_).Run();
  const DNSCLS* const start = error == 0 ? StartOfAuthority(dns) : nullptr;
  if (start != nullptr) found = start->SOA_Mailbox();
  if (start != nullptr && found.empty()) found = AddressOfMailbox(start->SOA_RName(), host);
  return error == 0 && found.empty() ? kErrNoDnsEntries : error;
}

std::string MailCall::FailLookup(std::int32_t error) {
  Fail(error, GetMessageText(kTextDnsError, {SocketErrorText(error)}));
  return {};
}

void SendMailCls::StopWaiting() { call_->Stop(module_->MessageLoop()); }

void SendMailCls::Kill() { StopWaiting(); }

}  // namespace netro
