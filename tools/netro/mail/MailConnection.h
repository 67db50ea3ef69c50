// The options about the way to a mail server. Thread: any.
#pragma once

#include <netro/SendMailCls.h>

#include <cstdint>
#include <string>

#include "mail/MailLogin.h"
#include "terminal/ConnectionOptions.h"

namespace netro::tool {

/// The options as they were typed.
struct MailConnectionOptions {
  std::string server;
  std::int32_t port = 0;
  std::string helo;
  ConnectionOptions connection;
  double total = 3600;  // seconds; 0: no limit
  MailLoginOptions login;
};

void DeclareMailConnection(CLI::App& options, MailConnectionOptions& values);

/// Makes `mail` go that way, with a login if need be. Throws UsageError.
void UseMailConnection(SendMailCls& mail, const MailConnectionOptions& options);

/// The result of a session, or of a lookup, that a longer --timeout might have helped.
bool IsMailTimeout(std::int32_t result);

}  // namespace netro::tool
