// An environment variable that a test sets, or takes away with null; the end of the scope undoes
// it.
#pragma once

#include <cstdlib>
#include <optional>
#include <string>

#include "SystemKit.h"

namespace netro {

class Environment {
 public:
  Environment(const char* name, const char* value) : name_(name) {
    if (const char* before = std::getenv(name)) before_ = before;
    Set(value);
  }
  ~Environment() { Set(before_ ? before_->c_str() : nullptr); }
  Environment(const Environment&) = delete;
  Environment& operator=(const Environment&) = delete;

 private:
  void Set(const char* value) { SetVariable(name_, value); }

  const char* name_;
  std::optional<std::string> before_;
};

/// The time zone of the process while it lives, in POSIX's form, which needs no files: "CET-1".
class TimeZone {
 public:
  explicit TimeZone(const char* zone) : variable_("TZ", zone) { ReadTimeZone(); }

 private:
  struct Refresh {
    ~Refresh() { ReadTimeZone(); }
  };

  Refresh refresh_;  // goes after the variable
  Environment variable_;
};

}  // namespace netro
