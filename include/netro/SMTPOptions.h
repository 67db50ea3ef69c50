// What a mail session may be told beyond the classic settings: extensions, TLS, a login, what is
// reported back. Each default leaves SMTPCls as it always was; SendMailCls begins with Extensions
// and StrictLines set.
//
// Thread: as the class that has them. A change takes effect with the next session.
#pragma once

#include <netro/Export.h>
#include <netro/Tls.h>

#include <cstdint>
#include <memory>
#include <string>
#include <utility>

namespace netro {

/// When a session is protected by TLS (RFC 3207, RFC 8314).
enum SMTPSecurityEnum : std::int32_t {
  smtpPlain = 0,             // never
  smtpTlsWhenOffered = 1,    // when the server offers STARTTLS; see SMTPOptions::Security
  smtpTlsRequired = 2,       // by STARTTLS, or the session fails
  smtpTlsFromFirstByte = 3,  // before the greeting, as at port 465; Port stays as it is set
};

/// Of what the sender is told by mail (RFC 3461, section 4.1); may be added up.
enum SMTPNotifyEnum : std::int32_t {
  notifyAsUsual = 0,
  notifyNever = 1,  // alone
  notifySuccess = 2,
  notifyFailure = 4,
  notifyDelay = 8,
};

/// How much of the message a failure notice has (RFC 3461, section 4.3).
enum SMTPReturnEnum : std::int32_t { returnAsUsual = 0, returnFull = 1, returnHeaders = 2 };

/// The options as they are kept.
struct SMTPOptionValues {
  bool extensions = false;
  SMTPSecurityEnum security = smtpPlain;
  std::shared_ptr<TlsProvider> tls;
  std::string user;
  std::string password;
  std::string accessToken;
  bool allowPlainPasswords = false;
  bool strictLines = false;
  bool chunking = false;
  std::int32_t lastStep = 80;
  std::int32_t notify = notifyAsUsual;
  SMTPReturnEnum returned = returnAsUsual;
  std::string envelopeID;

  bool operator==(const SMTPOptionValues&) const = default;
};

/// The settings. SMTPSettings has them.
class NETRO_EXPORT SMTPOptions {
 public:
  /// Begins with EHLO, or HELO when that is refused; uses what the server offers: SIZE (RFC 1870: a
  /// message that is too large is refused with 552 before it is sent), 8BITMIME (RFC 6152), SMTPUTF8
  /// (RFC 6531; else addresses beyond ASCII are refused), PIPELINING (RFC 2920), DSN (RFC 3461).
  /// Security and a login say EHLO in any case.
  bool Extensions() const { return options_.extensions; }
  void Extensions(bool value) { options_.extensions = value; }

  /// When the session is protected. smtpTlsRequired and smtpTlsFromFirstByte never fall back: a
  /// server that does not offer STARTTLS fails with 10043 at SMTP_STEP_STARTTLS, a handshake with a
  /// TlsError. smtpTlsWhenOffered is for mail between servers (RFC 7435): when the handshake fails
  /// everywhere, the session is tried once more in clear, unless a login is set. The certificate
  /// must be for the name of the server or exchanger, as Tls was made to check it.
  SMTPSecurityEnum Security() const { return options_.security; }
  void Security(SMTPSecurityEnum value) { options_.security = value; }
  /// Protects the sessions, see Tls.h. Without it smtpTlsWhenOffered is as smtpPlain, and the
  /// others fail with 10043.
  const std::shared_ptr<TlsProvider>& Tls() const { return options_.tls; }
  void Tls(std::shared_ptr<TlsProvider> value) { options_.tls = std::move(value); }

  /// The login (RFC 4954); none unless User is set. Of what the server offers, the first of
  /// SCRAM-SHA-256 (RFC 7677), CRAM-MD5 (RFC 2195), PLAIN (RFC 4616) and LOGIN is used, the next one
  /// when the server refuses a mechanism (504, 534); with AccessToken only XOAUTH2. UTF-8; a
  /// session with control characters in them fails with 97 at SMTP_STEP_PRECHECK. They stand in no
  /// transcript, event or text. A server without a login that can be used fails with 10043 at
  /// SMTP_STEP_AUTH.
  const std::string& User() const { return options_.user; }
  void User(std::string value) { options_.user = std::move(value); }
  const std::string& Password() const { return options_.password; }
  void Password(std::string value) { options_.password = std::move(value); }
  /// A token of OAuth 2 (RFC 6750) instead of the password.
  const std::string& AccessToken() const { return options_.accessToken; }
  void AccessToken(std::string value) { options_.accessToken = std::move(value); }
  /// Lets PLAIN, LOGIN and XOAUTH2, which send the secret itself, go over a session in clear.
  bool AllowPlainPasswords() const { return options_.allowPlainPasswords; }
  void AllowPlainPasswords(bool value) { options_.allowPlainPasswords = value; }

  /// Refuses a message with a CR or LF that stands alone, with 97 at SMTP_STEP_PRECHECK and a text
  /// that names the byte. Some servers take these for line ends, so that what follows them in a
  /// message could become commands. SendMailCls makes CR LF of them anyway.
  bool StrictLines() const { return options_.strictLines; }
  void StrictLines(bool value) { options_.strictLines = value; }

  /// Sends a short message together with its envelope where the server offers CHUNKING (RFC 3030) and
  /// PIPELINING: one round trip for each. When the connection is lost then, all that can be said is
  /// that it may have arrived.
  bool Chunking() const { return options_.chunking; }
  void Chunking(bool value) { options_.chunking = value; }

  /// For looking at servers: the session says QUIT once this step, of SMTPStepEnum, has succeeded,
  /// and nothing is delivered. Any step from SMTP_STEP_DATA on: the session is whole, as at first.
  std::int32_t LastStep() const { return options_.lastStep; }
  void LastStep(std::int32_t value) { options_.lastStep = value; }

  /// Delivery status notifications, asked for where the server offers DSN and silently left out
  /// elsewhere. EnvelopeID comes back in them.
  std::int32_t Notify() const { return options_.notify; }
  void Notify(std::int32_t value) { options_.notify = value; }
  SMTPReturnEnum Return() const { return options_.returned; }
  void Return(SMTPReturnEnum value) { options_.returned = value; }
  const std::string& EnvelopeID() const { return options_.envelopeID; }
  void EnvelopeID(std::string value) { options_.envelopeID = std::move(value); }

 protected:
  SMTPOptions() = default;
  ~SMTPOptions() = default;

  const SMTPOptionValues& Options() const { return options_; }

 private:
  SMTPOptionValues options_;
};

}  // namespace netro
