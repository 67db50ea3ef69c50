// What the commands that send echoes (ping, trace) say alike. Thread: any.
#pragma once

#include <netro/EchoCls.h>

#include <cstdint>
#include <string>

namespace netro::tool {

/// "0.034", the usual form of a time of so many microseconds.
std::string Milliseconds(double microSeconds);

/// The text of an IP status, such as "Request Timed Out".
std::string EchoStatusText(std::int32_t status);

/// The same of an answer, empty for a reply; a firewall's word says what it is.
std::string EchoAnswerText(std::int32_t status, bool isFiltered);

/// True when a packet filter on the way has refused the request (RFC 1812, RFC 4443).
bool IsFiltered(const EchoAnswer& answer);

/// The error of EchoCls::Send and of ICMPCls when the system allows this program no echo.
constexpr std::int32_t kEchoForbidden = -10001;

/// What is missing then, and how to come by it.
std::string EchoForbiddenText();

}  // namespace netro::tool
