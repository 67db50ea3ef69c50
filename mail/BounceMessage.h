// The message that tells a sender which recipients were not reached (RFC 3464, RFC 6522): a text,
// a delivery status, and the header of the message. Pure; what servers have said in it is without
// control characters. Thread: any.
#pragma once

#include <netro/MailSpool.h>

#include <chrono>
#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace netro {

struct BounceFacts {
  std::string host;          // that reports
  Date now = 0;              // UTC
  std::string boundary;      // that stands in none of the texts
  std::string_view message;  // or the front of it; its header is shown
};

/// The bounce for the recipients of `mail` with these numbers, all of which are decided. Lines end
/// with CR LF.
std::string ComposeBounce(const SpooledMail& mail, const std::vector<std::size_t>& failed,
                          const BounceFacts& facts);

/// The status code of a recipient (RFC 3463): the server's own, else what the class tells.
std::string StatusCode(const SpooledRecipient& recipient);

}  // namespace netro
