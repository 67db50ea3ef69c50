// The name that a DNS message asks for. Thread: any.
#pragma once

#include <string>
#include <string_view>

namespace netro::tool {

/// The bytes of the first name behind the header (RFC 1035, section 4.1.2); none when it is
/// compressed or does not end.
std::string_view QuestionNameBytes(std::string_view message);

/// The same as text, "www.example.com."
std::string QuestionNameText(std::string_view message);

}  // namespace netro::tool
