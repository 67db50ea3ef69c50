// What the commands that send echoes (ping, trace) say alike.

#include "terminal/EchoText.h"

#include <netro/ICMPCls.h>

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <initializer_list>
#include <system_error>

#include "terminal/FailureText.h"
#include "terminal/System.h"

namespace netro::tool {
namespace {

std::string PathOfThisProgram() {
  std::error_code error;
  const auto path = std::filesystem::read_symlink("/proc/self/exe", error);
  return error ? "netro" : path.string();
}

}  // namespace

std::string Milliseconds(double microSeconds) {
  char text[32];
  std::snprintf(text, sizeof text, "%.3f", microSeconds / 1000);
  return text;
}

std::string EchoStatusText(std::int32_t status) { return ICMPCls().GetICMPError(status); }

std::string EchoAnswerText(std::int32_t status, bool isFiltered) {
  if (isFiltered) return "Packet Filtered";
  return status == 0 ? "" : EchoStatusText(status);
}

bool IsFiltered(const EchoAnswer& answer) {
  const auto isOneOf = [&](std::initializer_list<std::int32_t> codes) {
    return std::ranges::find(codes, answer.IcmpCode) != codes.end();
  };
  const bool isIPv6 = answer.Host.find(':') != answer.Host.npos;
  return isIPv6 ? answer.IcmpType == 1 && isOneOf({1, 5, 6})
                : answer.IcmpType == 3 && isOneOf({9, 10, 13});
}

std::string EchoForbiddenText() {
  // The library's number is the same for everything that keeps it from a socket.
  if (IsShortOfDescriptors()) {
    return FailureText("no echo can be sent", kEchoForbidden, EchoStatusText(-kEchoForbidden)) +
           "; this program may open no more files (ulimit -n)";
  }
  return FailureText("the system allows this program no echo", kEchoForbidden,
                     EchoStatusText(-kEchoForbidden)) +
         "; it takes a group of this user inside net.ipv4.ping_group_range (for all users: "
         "sysctl -w net.ipv4.ping_group_range=\"0 2147483647\") or the capability cap_net_raw "
         "(for this program: setcap cap_net_raw+ep " +
         PathOfThisProgram() + ")";
}

}  // namespace netro::tool
