// Line ends that a lenient server could take for one (RFC 5321, section 2.3.8). Thread: any.
#pragma once

#include <string>
#include <string_view>

namespace netro {

/// Where the first CR or LF is that stands alone, as a sentence; empty when there is none.
std::string BareLineEnd(std::string_view text);

}  // namespace netro
