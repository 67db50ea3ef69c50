// The header block of finished messages (RFC 5322, section 2.2), whose lines may end with CR LF, LF
// or CR. Linear in the length of the message. Thread: any.
#pragma once

#include <string>
#include <string_view>

namespace netro {

/// True for one or more printable ASCII characters other than ":".
bool IsFieldName(std::string_view name);

/// True for Bcc and Resent-Bcc in any case.
bool IsBlindCopyName(std::string_view name);

/// True when the message begins with a field, and nothing but fields and their continued lines
/// stands before the first empty line or the end.
bool HasHeaderBlock(std::string_view message);

}  // namespace netro
