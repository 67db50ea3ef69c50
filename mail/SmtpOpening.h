// Opens a session: connection, protection, greeting, EHLO or HELO, login.
#pragma once

#include <netro/ProxySettings.h>

#include <string>

#include "mail/SmtpDialogue.h"

namespace netro {

/// Connects to the server of the dialogue's settings, or to `address` in its place, and goes on
/// until mail can be sent. False when that failed; the result tells why.
bool OpenSmtp(SmtpDialogue& dialogue, const ProxyValues& proxy, const std::string& address);

}  // namespace netro
