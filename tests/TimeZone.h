// The time zone of the process while it lives, in POSIX's form, which needs no files: "CET-1".
#pragma once

#include <time.h>

#include "Environment.h"

namespace netro {

class TimeZone {
 public:
  explicit TimeZone(const char* zone) : variable_("TZ", zone) { tzset(); }

 private:
  struct Refresh {
    ~Refresh() { tzset(); }
  };

  Refresh refresh_;  // goes after the variable
  Environment variable_;
};

}  // namespace netro
