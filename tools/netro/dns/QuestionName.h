// The name that is asked for. Thread: any.
#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace netro::tool {

/// The name that has the PTR record of an address, below in-addr.arpa or ip6.arpa (RFC 3596,
/// section 2.5); none for other texts.
std::optional<std::string> ReverseName(const std::string& address);

/// The bytes of the first name behind the header (RFC 1035, section 4.1.2); none when it is
/// compressed or does not end.
std::string_view QuestionNameBytes(std::string_view message);

/// The same as text, "www.example.com."
std::string QuestionNameText(std::string_view message);

}  // namespace netro::tool
