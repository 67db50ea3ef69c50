// How "netro dns --trace" shows the way it went. Thread: the main one.
#pragma once

#include <cstddef>
#include <memory>
#include <span>

#include "dns/DnsTrace.h"
#include "terminal/JsonOutput.h"

namespace netro::tool {

class DnsTraceOutput {
 public:
  DnsTraceOutput(bool json, bool brief, std::size_t count)
      : json_(json), brief_(brief), count_(count), objects_(count) {}

  /// Prints each step or the JSON object, and says on standard error where it did not go on. False
  /// when nobody reads standard output any more.
  bool Show(const DnsTrace& trace);

  /// Tells of those that did not begin.
  void Finish(std::span<const std::unique_ptr<DnsTrace>> rest);

  bool AreAllGood() const { return good_ == count_; }

 private:
  void PrintText(const DnsTrace& trace);
  void PrintJson(const DnsTrace& trace);

  const bool json_;
  const bool brief_;  // only the answer's data
  const std::size_t count_;
  JsonSeries objects_;
  bool isFirst_ = true;
  std::size_t good_ = 0;
};

}  // namespace netro::tool
