// The library's numbered message table: status words, step names, result and error texts.
#pragma once

#include <netro/Export.h>

#include <cstdint>
#include <string>
#include <vector>

namespace netro {

/// Returns the text of message `Number`, its placeholders filled in with `Arguments`.
///
/// "%1" is replaced by the first argument, then "%2" by the second, and so on, in that order and
/// at every occurrence; so an argument that holds a later placeholder is itself filled in. The
/// match is textual: "%1" is also found at the beginning of "%10". A placeholder without an
/// argument stays as it is, an argument without a placeholder is ignored.
///
/// A number that the table does not hold gives an empty text.
///
///     GetMessageText(7001, {"SMTP", "Connect"})  // "[SMTP] Timeout while 'Connect'."
///
/// Thread: any.
NETRO_EXPORT std::string GetMessageText(std::int32_t Number,
                                        const std::vector<std::string>& Arguments = {});

}  // namespace netro
