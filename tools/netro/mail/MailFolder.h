// The folder options of "netro mail": a message put into a spool folder, and what is in one
// delivered or listed. Thread: the loop's.
#pragma once

#include <netro/SendMailCls.h>

#include "mail/MailOptions.h"

namespace netro::tool {

/// Puts the composed message into the folder of --spool; returns the exit status, as all of these.
int SpoolMail(SendMailCls& mail, const MailOptions& options);

/// --deliver.
int DeliverFolder(const MailOptions& options);

/// --list.
int ListMailFolder(const MailOptions& options);

}  // namespace netro::tool
