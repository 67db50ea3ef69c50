#include "diag/WatchLog.h"

#include <string_view>

namespace netro {

std::string WatchLogLine(const std::vector<std::string>& fields) {
  constexpr std::string_view kBeginsFormula = "=+-@\t\r";
  std::string line;
  for (const std::string& field : fields) {
    line += line.empty() ? "\"" : ",\"";
    if (!field.empty() && kBeginsFormula.find(field.front()) != kBeginsFormula.npos) line += '\'';
    for (const char c : field) line.append(c == '"' ? 2 : 1, c);
    line += '"';
  }
  return line;
}

}  // namespace netro
