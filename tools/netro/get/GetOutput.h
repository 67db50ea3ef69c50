// How "netro get" shows what it got. Thread: the main one.
#pragma once

#include <cstddef>
#include <span>

#include "get/Fetch.h"
#include "get/GetOptions.h"
#include "terminal/JsonOutput.h"

namespace netro::tool {

class GetOutput {
 public:
  explicit GetOutput(const GetOptions& options)
      : options_(options), objects_(options.urls.size()) {}

  /// Prints header and body, or the JSON object, and says on standard error what went wrong, which
  /// may be that the body cannot be saved. False when nobody reads standard output any more.
  bool Show(Fetch& fetch);

  /// Tells of those that did not begin.
  void Finish(std::span<const Fetch> rest);

  bool AreAllGood() const { return good_ == options_.urls.size(); }

 private:
  void ShowOnce(const Fetch& fetch);
  void PrintJson(const Fetch& fetch);

  const GetOptions& options_;
  JsonSeries objects_;
  std::size_t good_ = 0;
};

}  // namespace netro::tool
