// How "netro mail" protects its sessions and logs in. Thread: the main one.
#pragma once

#include <netro/SendMailCls.h>

#include <string>

#include "terminal/TlsOptions.h"

namespace netro::tool {

/// The options as they were typed.
struct MailLoginOptions {
  std::string security;
  TlsOptions tls;
  std::string user;
  std::string passwordFile;
  std::string tokenFile;
  bool inClear = false;
};

void DeclareMailLogin(CLI::App& options, MailLoginOptions& values);

/// Reads the files, asks for a password where one is missing, and sets all that, with the port where
/// none was given. Throws UsageError.
void UseMailLogin(SendMailCls& mail, const MailLoginOptions& options, bool hasPort);

}  // namespace netro::tool
