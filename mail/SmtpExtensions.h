// What a server says that it can do, in its reply to EHLO (RFC 5321, section 4.1.1.1), and the
// enhanced status codes of its replies (RFC 3463). Thread: any.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace netro {

struct SmtpExtensions {
  std::vector<std::string> lines;  // as they came, with their parameters; 100 at most
  std::vector<std::string> mechanisms;  // of AUTH
  std::uint64_t largest = 0;            // of SIZE; 0: none is named
  bool size = false;
  bool pipelining = false;
  bool chunking = false;
  bool eightBitMime = false;
  bool smtpUtf8 = false;
  bool startTls = false;
  bool dsn = false;
  bool auth = false;
};

/// Reads a whole reply, as it came; lines that make no sense are left out.
SmtpExtensions ParseExtensions(std::string_view reply);

/// The enhanced code in the last line of a reply whose code has the same first digit, as "5.1.1";
/// else empty.
std::string EnhancedStatus(std::string_view reply);

/// RFC 3461, section 4: what is not printable, "+" and "=" as "+" and two hexadecimal digits.
std::string XText(std::string_view text);

}  // namespace netro
