// The rules that a mail address must keep, in their order. Thread: any.
#pragma once

#include <cstdint>
#include <string_view>

namespace netro {

/// The first rule that the address in `text` breaks, 1 to 9; 0 when it keeps them all. Its text is
/// that of message 3500 plus the number. `topLevelDomains` are separated by commas; none: all are
/// accepted.
/// With HostRule::Any the host may be one word, as a named server may know it (root@localhost).
enum class HostRule { Dotted, Any };
std::int32_t CheckAddressSyntax(std::string_view text, std::string_view topLevelDomains,
                                HostRule rule = HostRule::Dotted);

/// The text of a result of CheckAddressSyntax.
inline constexpr std::int32_t kTextAddressRule = 3500;

}  // namespace netro
