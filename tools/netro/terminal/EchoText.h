// What the commands that send echoes (ping, trace) say alike. Thread: any.
#pragma once

#include <cstdint>
#include <string>

namespace netro::tool {

/// "0.034", the usual form of a time of so many microseconds.
std::string Milliseconds(double microSeconds);

/// The text of an IP status, such as "Request Timed Out".
std::string EchoStatusText(std::int32_t status);

/// The error of EchoCls::Send and of ICMPCls when the system allows this program no echo.
constexpr std::int32_t kEchoForbidden = -10001;

/// What is missing then, and how to come by it.
std::string EchoForbiddenText();

}  // namespace netro::tool
