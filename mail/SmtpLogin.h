// Logging in (RFC 4954), on a dialogue whose server has said what it can do.
#pragma once

#include "mail/SmtpDialogue.h"

namespace netro {

/// True when the server has taken the credentials of the settings, or there are none.
bool LogIn(SmtpDialogue& dialogue);

/// Why the credentials cannot be sent to anybody; empty when they can.
std::string CredentialsFault(const SMTPOptionValues& options);

}  // namespace netro
