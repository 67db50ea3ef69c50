// Where the mail for a domain goes: hosts in the order in which they are tried, and their addresses.
// Blocks under the caller's mark; touches nothing that an event may delete. Thread: the caller's.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "mail/SmtpResult.h"
#include "socket/Wait.h"

namespace netro {

/// No hosts: the result tells why, as SMTPCls has it. Its transcript is that of the lookup.
struct MailRoute {
  std::vector<std::string> hosts;
  std::shared_ptr<SmtpResult> lookup = std::make_shared<SmtpResult>();
};

/// The server of the settings, or all exchangers of the domain.
MailRoute FindRoute(const SmtpOrder& order, const std::string& domain, const CancelMark& mark,
                    const SmtpEvents& events);

/// The addresses of a host as texts, at most nine; none where only the proxy knows them.
std::vector<std::string> AddressesOf(const std::string& host, const SmtpOrder& order,
                                     const CancelMark& mark);

}  // namespace netro
