// The commands of an envelope with the parameters that a server offers. Thread: any.
#pragma once

#include <netro/SMTPOptions.h>

#include <string>

#include "mail/SmtpData.h"
#include "mail/SmtpExtensions.h"

namespace netro {

/// `foreignRecipient`: one of them is not in ASCII. A size of 0 is not told.
std::string MailCommand(const std::string& from, const SmtpFacts& message, bool foreignRecipient,
                        const SmtpExtensions& offered, const SMTPOptionValues& options);
std::string RcptCommand(const std::string& address, const SmtpExtensions& offered,
                        const SMTPOptionValues& options);

}  // namespace netro
