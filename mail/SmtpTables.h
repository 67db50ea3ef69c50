// The tables that tune a session: "step:value" entries separated by commas, without blanks. Thread:
// any.
#pragma once

#include <chrono>
#include <cstdint>
#include <string>
#include <string_view>

namespace netro {

/// True when `item` is an element of the list, whatever the case. `item` may hold several elements
/// that follow each other there.
bool IsInList(std::string_view list, std::string_view item, char separator = ',');

/// True when the table has the entry "step:code".
bool HasStepEntry(std::string_view table, std::int32_t step, std::int32_t code);

/// True for the replies that say that something was done, or was not: 2yz, 4yz and 5yz.
bool IsDecision(std::int32_t code);

/// The number behind the first "step:" in the table, wherever that stands: "115:5" has one for 15.
/// 60 seconds when there is none or it cannot be read. A fraction ("15:0.5") counts.
std::chrono::milliseconds StepTimeOut(std::string_view table, std::int32_t step);

/// The name of a step, that of message 7200 plus the step; empty where there is none.
std::string StepName(std::int32_t step);

}  // namespace netro
