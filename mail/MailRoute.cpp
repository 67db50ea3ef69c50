#include "mail/MailRoute.h"

#include "mail/MailExchanger.h"
#include "mail/SmtpDialogue.h"
#include "platform/ErrorNumbers.h"
#include "socket/HostLookup.h"

namespace netro {
namespace {

constexpr std::size_t kMostAddresses = 9;
constexpr long kLookupSeconds = 60;

}  // namespace

MailRoute FindRoute(const SmtpOrder& order, const std::string& domain, const CancelMark& mark,
                    const SmtpEvents& events) {
  MailRoute route;
  if (!order.settings.receiverHostName.empty()) {
    route.hosts = {order.settings.receiverHostName};
    return route;
  }
  SmtpResult& result = *route.lookup;
  SmtpDialogue dialogue(order.settings, order.waits, route.lookup, events);
  dialogue.Use(&mark);
  std::string lines;
  const MailExchanger found = FindMailExchanger(
      order.settings, domain, mark,
      [&](const std::string& line) {
        lines += (lines.empty() ? "" : "\r\n") + line;
        dialogue.transcript.Add(line);
      },
      ExchangerChoice::FirstOfAll);
  result.dnsError = mark.Cancelled() ? kErrCancelled : found.dnsError;
  if (mark.Cancelled()) {
    dialogue.FailWait(SMTP_STEP_AUTODNS, kErrCancelled);
  } else if (found.all.empty() && mark.Expired()) {
    dialogue.FailWait(SMTP_STEP_AUTODNS, kErrTimedOut);
  } else if (found.all.empty()) {
    dialogue.Fail(SMTP_STEP_AUTODNS, SMTP_AUTODNSOK, lines);
  } else {
    route.hosts = found.all;
  }
  return route;
}

std::vector<std::string> AddressesOf(const std::string& host, const SmtpOrder& order,
                                     const CancelMark& mark) {
  std::vector<std::string> found;
  if (order.proxy.type != 0 && order.proxy.useRemoteDNS) return found;
  const auto add = [&](const LookupAnswer& answer) {
    for (const IpAddress& ip : answer.addresses) {
      if (found.size() < kMostAddresses) found.push_back(FormatAddress(ip));
    }
  };
  const TimePoint deadline = SecondsFromNow(kLookupSeconds);
  const LookupSettings lookup{NameServers(order.settings), order.settings.preference};
  const LookupAnswer answer = ResolveHost(host, lookup, mark, deadline);
  add(answer);
  if (answer.mayHaveIPv6 && !mark.Cancelled())
    add(ResolveHost(host, {lookup.servers, onlyIPv6}, mark, deadline));
  return found;
}

}  // namespace netro
