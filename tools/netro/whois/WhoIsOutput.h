// How "netro whois" shows what it got.
#pragma once

#include <netro/WhoIsCls.h>

#include "whois/WhoIsOptions.h"

namespace netro::tool {

/// Prints answers one after the other as they come.
class WhoIsPrinter {
 public:
  /// With headings each answer stands below the name of its server.
  explicit WhoIsPrinter(bool headings) : headings_(headings) {}

  void Print(const WhoIsAnswer& answer);

 private:
  const bool headings_;
  bool first_ = true;
  bool lineIsOpen_ = false;  // the last answer did not end its last line
};

/// Prints the JSON object.
void PrintWhoIsJson(const WhoIsRequest& request, const WhoIsCls& client);

/// Says on standard error what went wrong and what was ignored.
void ExplainWhoIs(const WhoIsAnswer& answer, const WhoIsRequest& request);
/// The same where nobody was asked.
void ExplainRefusal(const WhoIsCls& client);

}  // namespace netro::tool
