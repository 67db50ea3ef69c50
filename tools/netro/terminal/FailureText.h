// The shape of messages about a failed query. Thread: any.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "terminal/SecondsText.h"

namespace netro::tool {

/// "cannot ask a:43: Connection refused (error 10061)"; `text` is the library's.
inline std::string FailureText(const std::string& what, std::int32_t number,
                               std::string_view text) {
  text.remove_suffix(text.ends_with('.') ? 1 : 0);
  return what + ": " + std::string(text) + " (error " + std::to_string(number) + ")";
}

/// What a user can do about a time-out of `seconds`; empty for other errors.
inline std::string TimeoutAdvice(std::int32_t number, double seconds) {
  constexpr std::int32_t kTimedOut = 10002;
  return number != kTimedOut
             ? std::string()
             : "; the limit is " + SecondsText(seconds) + " s, --timeout changes it";
}

}  // namespace netro::tool
