// What the tour prints: each step as it ends, or one JSON object at the end.
#pragma once

#include <chrono>
#include <string>
#include <vector>

#include "tour/TourJournal.h"

namespace netro::tool {

struct TourStep {
  std::string title;
  std::string call;  // what the program asked for
  std::vector<TourMessage> messages;
  std::string outcome;  // what the program got
  bool asExpected = false;
  double seconds = 0;
};

class TourReport {
 public:
  explicit TourReport(bool json) : json_(json) {}

  /// Begins the part about one class.
  void BeginSection(const std::string& name, const std::string& about);
  void Add(TourStep step);
  /// Prints the summary or the object. True when every step went as expected, and there were some.
  bool Finish();

 private:
  struct Entry {
    std::string section;
    TourStep step;
  };

  void PrintSummary(std::size_t good) const;
  void PrintJson(bool good) const;
  double Seconds() const;

  const bool json_;
  const std::chrono::steady_clock::time_point begin_ = std::chrono::steady_clock::now();
  std::string section_;
  std::vector<Entry> entries_;
};

}  // namespace netro::tool
