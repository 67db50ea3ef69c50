// The message of "netro mail". Thread: the loop's.
#pragma once

#include <netro/SendMailCls.h>

#include "mail/MailOptions.h"

namespace netro::tool {

/// Composes the message that the options ask for. Throws UsageError for addresses that are none and
/// for what cannot be read or does not fit together.
void ComposeMail(const MailOptions& options, SendMailCls& mail);

}  // namespace netro::tool
