// How "netro mail" protects its sessions and logs in.

#include "mail/MailLogin.h"

#include <CLI/CLI.hpp>
#include <iterator>

#include "terminal/Command.h"
#include "terminal/Secret.h"

namespace netro::tool {
namespace {

constexpr const char* kLogin = "Login";
constexpr std::int32_t kSubmission = 587;
constexpr std::int32_t kSubmissions = 465;

constexpr struct {
  const char* name;
  SMTPSecurityEnum security;
} kModes[] = {{"off", smtpPlain},
              {"offered", smtpTlsWhenOffered},
              {"required", smtpTlsRequired},
              {"direct", smtpTlsFromFirstByte}};

/// Without a word a login is protected.
SMTPSecurityEnum ReadSecurity(const MailLoginOptions& options) {
  if (options.security.empty()) return options.user.empty() ? smtpPlain : smtpTlsRequired;
  for (const auto& [name, security] : kModes) {
    if (options.security == name) return security;
  }
  throw UsageError("--tls: off, offered, required and direct are possible, not \"" +
                   options.security + "\"");
}

void ReadPassword(SendMailCls& mail, const MailLoginOptions& options) {
  if (options.user.empty()) {
    if (options.passwordFile.empty() && options.tokenFile.empty()) return;
    throw UsageError("--password-file and --token-file need --user NAME");
  }
  mail.User(options.user);
  if (!options.tokenFile.empty()) {
    mail.AccessToken(ReadPasswordFile("--token-file", options.tokenFile));
  } else if (!options.passwordFile.empty()) {
    mail.Password(ReadPasswordFile("--password-file", options.passwordFile));
  } else if (CanAskPassword()) {
    mail.Password(AskPassword("Password of " + options.user + ": "));
  } else {
    throw UsageError("--user: no password; name a file with --password-file (- is standard input)");
  }
}

}  // namespace

void DeclareMailLogin(CLI::App& options, MailLoginOptions& values) {
  options
      .add_option("--tls", values.security,
                  "Protect the sessions: \"required\" (by STARTTLS, the usual with\n"
                  "--user), \"direct\" (from the first byte, at port 465), \"offered\"\n"
                  "(where the server can, in clear elsewhere), or \"off\"")
      ->type_name("MODE")
      ->group(kLogin);
  const auto text = [&options](const char* name, std::string& value, const char* type,
                               const char* help) {
    return options.add_option(name, value, help)->type_name(type)->group(kLogin);
  };
  text("-u,--user", values.user, "NAME",
       "Log in to the server, at port 587 unless another is given; the\n"
       "password is asked for, on the terminal or by the program that\n"
       "NETRO_ASKPASS or SSH_ASKPASS names");
  auto* file = text("--password-file", values.passwordFile, "FILE",
                    "Take the password from the first line of this file; - is\n"
                    "standard input");
  text("--token-file", values.tokenFile, "FILE",
       "Log in with a token (OAuth 2) from the first line of this file")
      ->excludes(file);
  options
      .add_flag("--password-in-clear", values.inClear,
                "Send a password over a session that is not protected, if the\n"
                "server has no better way")
      ->group(kLogin);
  DeclareTls(options, values.tls, "TLS (--tls)");
}

void UseMailLogin(SendMailCls& mail, const MailLoginOptions& options, bool hasPort) {
  const SMTPSecurityEnum security = ReadSecurity(options);
  mail.Security(security);
  auto tls = ReadTls(options.tls);
  if (security != smtpPlain && security != smtpTlsWhenOffered && tls == nullptr) {
    throw UsageError("--tls: this netro was built without TLS");
  }
  mail.Tls(std::move(tls));
  mail.AllowPlainPasswords(options.inClear);
  if (!hasPort && security == smtpTlsFromFirstByte) {
    mail.Port(kSubmissions);
  } else if (!hasPort && !options.user.empty()) {
    mail.Port(kSubmission);
  }
  ReadPassword(mail, options);
}

}  // namespace netro::tool
