// Postfix as the users of a mail provider meet it: TLS on STARTTLS or from the first byte, logins
// checked by dovecot, greylisting. Each kind of door is an address of its own, all on one port; the
// certificate is of the tests' authority. Needs root. Thread: the test's.
#pragma once

#include <netro/testkit/LoopbackServer.h>

#include <atomic>
#include <memory>
#include <string>

#include "Postfix.h"

namespace netro::interop {

/// In the order of the addresses, from 127.0.0.1 on.
enum class Door {
  Exchanger,      // takes mail for xy.test; offers STARTTLS
  FromFirstByte,  // TLS before the greeting, then a login
  Submission,     // STARTTLS and a login are required
  ClearLogin,     // a login without TLS
  Greylisting,    // as Exchanger, each recipient is asked to come back once (450)
  Expired,        // as Exchanger, with a certificate that is over
  OnlyPlain,      // as FromFirstByte, each with a single mechanism
  OnlyLogin,
  OnlyCramMd5,
};

class TlsPostfix {
 public:
  TlsPostfix();

  /// Why it cannot be used here; empty when it can.
  static std::string Missing();

  bool IsUp() const { return logins_->IsUp() && server_->IsUp(); }
  int Port() const { return server_->Port(); }
  std::string Output() const { return logins_->Output() + server_->Output(); }
  std::vector<ArrivedMail> TakeMail() { return server_->TakeMail(); }

  static std::string Address(Door door);
  static constexpr char kUser[] = "joe";
  static constexpr char kPassword[] = "s3cret p\u00E4ssword";
  /// A token that lets kUser in.
  static std::string AccessToken();

 private:
  void AskToComeBack(testkit::Connection& connection);

  std::unique_ptr<ServerProcess> logins_;
  std::unique_ptr<testkit::LoopbackServer> policy_;
  std::unique_ptr<Postfix> server_;
};

}  // namespace netro::interop
