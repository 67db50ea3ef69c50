// The message table as it is compiled in; `GetMessageText` is its only user. Thread: any.
#pragma once

#include <cstdint>
#include <string_view>

namespace netro {

/// Returns the text of message `number` with its placeholders, or an empty one when there is none.
std::string_view FindMessageText(std::int32_t number);

}  // namespace netro
