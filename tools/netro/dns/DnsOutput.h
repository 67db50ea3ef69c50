// How "netro dns" shows what it got. Thread: the main one.
#pragma once

#include <cstddef>
#include <memory>
#include <span>

#include "dns/DnsLookup.h"
#include "terminal/JsonOutput.h"

namespace netro::tool {

class DnsOutput {
 public:
  DnsOutput(bool json, bool brief, std::size_t count)
      : json_(json), brief_(brief), count_(count), objects_(count) {}

  /// Prints the reply as a zone file or in short, or the JSON object, and says on standard error
  /// what went wrong. False when nobody reads standard output any more.
  bool Show(const DnsLookup& lookup);

  /// Tells of those that did not begin.
  void Finish(std::span<const std::unique_ptr<DnsLookup>> rest);

  bool AreAllGood() const { return good_ == count_; }

 private:
  void PrintReply(const DnsLookup& lookup);
  void PrintJson(const DnsLookup& lookup);

  const bool json_;
  const bool brief_;  // only the data
  const std::size_t count_;
  JsonSeries objects_;
  bool isFirst_ = true;
  std::size_t good_ = 0;
};

/// Prints the JSON object, without a line end.
void PrintDnsJson(const DnsLookup& lookup);

}  // namespace netro::tool
