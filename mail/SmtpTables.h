// The tables that tune a session: "step:value" entries separated by commas, without blanks. Thread:
// any.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace netro {

/// True when `item` is an element of the list, whatever the case. `item` may hold several elements
/// that follow each other there.
bool IsInList(std::string_view list, std::string_view item, char separator = ',');

/// True when the table has the entry "step:code".
bool HasStepEntry(std::string_view table, std::int32_t step, std::int32_t code);

/// The number behind the first "step:" in the table, wherever that stands: "115:5" has one for 15.
/// 60 when there is none or it cannot be read.
std::int32_t StepTimeOut(std::string_view table, std::int32_t step);

/// The name of a step, that of message 7200 plus the step; empty where there is none.
std::string StepName(std::int32_t step);

}  // namespace netro
