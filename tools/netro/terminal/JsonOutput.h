// The JSON objects of the subcommands on standard output. Thread: any.
#pragma once

#include <cstddef>
#include <nlohmann/json.hpp>
#include <string>

#include "terminal/Terminal.h"

namespace netro::tool {

/// On a terminal only ASCII, since UTF-8 has control characters too. What is no UTF-8 is replaced.
inline std::string ObjectText(const nlohmann::ordered_json& object, int indent = 2) {
  return object.dump(indent, ' ', IsTerminal(Stream::Output),
                     nlohmann::ordered_json::error_handler_t::replace);
}

inline void PrintObject(const nlohmann::ordered_json& object) { Print(ObjectText(object) + "\n"); }

/// On a line of its own; false when nobody reads it any more.
inline bool PrintObjectLine(const nlohmann::ordered_json& object) {
  return Print(ObjectText(object, -1) + "\n");
}

/// The output of a command that may be asked for several things: the object of the only one, or a
/// list of all. Each is printed when it is there.
class JsonSeries {
 public:
  explicit JsonSeries(std::size_t count) : isList_(count > 1) {}

  /// To be called before each object, which is printed without a line end.
  void BeginObject() {
    if (isList_) Print(isFirst_ ? "[\n" : ",\n");
    isFirst_ = false;
  }
  void End() { Print(isList_ ? "\n]\n" : "\n"); }

 private:
  const bool isList_;
  bool isFirst_ = true;
};

}  // namespace netro::tool
