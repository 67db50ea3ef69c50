// How "netro mail" tells what became of a message. Thread: the loop's.
#pragma once

#include <netro/SendMailCls.h>

#include "mail/MailOptions.h"

namespace netro::tool {

/// Prints a line for each recipient.
void PrintMail(const SendMailCls& mail, const MailOptions& options);

/// Prints the JSON object.
void PrintMailJson(const SendMailCls& mail, const MailOptions& options, double seconds);

/// Says on standard error what the lines do not.
void ExplainMail(const SendMailCls& mail, const MailOptions& options);

}  // namespace netro::tool
