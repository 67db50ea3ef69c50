// A report that waits, in the form in which the state file keeps it for the next start. Thread:
// any.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace netro {

struct WatchWaiting {
  std::string kind;  // "mail", "run" or "hook"
  std::vector<std::string> fields;
};

/// Texts of any bytes as one, each with its length before it: "3:one0:5:three".
std::string JoinFields(const std::vector<std::string>& fields);
/// Nothing when it is not wholly such a text.
std::optional<std::vector<std::string>> SplitFields(std::string_view text);

}  // namespace netro
