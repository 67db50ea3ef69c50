// A number of seconds as a user typed it: "30", "0.5". Thread: any.
#pragma once

#include <cstdio>
#include <string>

namespace netro::tool {

inline std::string SecondsText(double seconds) {
  char text[32];
  std::snprintf(text, sizeof text, "%.7g", seconds);
  return text;
}

}  // namespace netro::tool
