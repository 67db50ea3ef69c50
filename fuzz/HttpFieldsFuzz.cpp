// Feeds one value as the fields that HTTP servers send with redirects, ranges and retries: what is
// read must be within bounds, and a part must go exactly where the bytes end that are there.
#include <chrono>

#include "fuzz/Fuzz.h"
#include "support/HttpDate.h"
#include "support/Text.h"
#include "support/Url.h"
#include "support/UrlReference.h"
#include "web/RangeAnswer.h"

namespace {

constexpr std::chrono::sys_seconds kNow{std::chrono::seconds(1'800'000'000)};

void CheckRange(const std::string& value) {
  const auto range = netro::ReadContentRange(value);
  if (!range) return;
  Require(range->satisfied || range->total);
  Require(!range->satisfied || range->first <= range->last);
  Require(!range->satisfied || !range->total || range->last < *range->total);
  for (const std::int32_t status : {206, 416}) {
    const netro::PartialBody partial{range->first, "", "", "", true};
    const auto decision = netro::DecideResume(partial, {status, value, "", "", "", {}, {}});
    if (decision.step != netro::ResumeStep::Continue) continue;
    Require(range->satisfied && decision.total == range->total);
  }
}

void CheckFields(const std::string& value) {
  for (const auto& [name, text] : netro::ResumeFields({5, value, value, value, true})) {
    Require(!netro::HasControlCharacter(text));
  }
}

void CheckUrls(const std::string& value) {
  const std::string target = netro::ResolveReference("https://h.example/a/b?c", value);
  Require(target.size() <= value.size() + 32);
  const netro::UrlResult split = netro::SplitUrl(target);
  Require(!netro::HasControlCharacter(netro::ShownUrl(value)));
  if (!split.error.empty()) return;
  const netro::UrlResult again = netro::SplitUrl(netro::UrlText(split.url));
  Require(again.error.empty() && netro::SameOrigin(split.url, again.url));
  Require(again.url.path == split.url.path && again.url.query == split.url.query);
  Require(!again.url.hasUserInfo);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string value(data, data + size);
  CheckRange(value);
  CheckFields(value);
  CheckUrls(value);
  const auto delay = netro::ReadRetryAfter(value, kNow);
  Require(!delay || (*delay >= delay->zero() && *delay <= std::chrono::days(366)));
  return 0;
}
