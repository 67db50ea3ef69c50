// Whether a fetch that failed is tried again.

#include "get/Retry.h"

#include <algorithm>
#include <initializer_list>

namespace netro::tool {
namespace {

constexpr std::chrono::seconds kLongestPause(3'600);
constexpr std::int32_t kMostDoublings = 11;

bool IsOneOf(std::int32_t value, std::initializer_list<std::int32_t> values) {
  return std::ranges::find(values, value) != values.end();
}

}  // namespace

bool IsPassingStatus(std::int32_t status) {
  return IsOneOf(status, {408, 429, 500, 502, 503, 504});
}

bool IsPassing(const HttpResult& result) {
  if (result.IsAnswer()) return IsPassingStatus(result.status);
  return IsOneOf(result.errorNumber, {10002, 10050, 10051, 10053, 10054, 10060, 10061, 10064,
                                      10065, 11002});
}

std::optional<std::chrono::seconds> PauseBefore(std::int32_t next, const HttpResult& result) {
  const auto own = std::chrono::seconds(1) * (1 << std::min(next - 2, kMostDoublings));
  const std::chrono::seconds told(result.retryAfter);
  const auto pause = result.retryAfter >= 0 ? told : own;
  if (pause > kLongestPause) return std::nullopt;
  return pause;
}

}  // namespace netro::tool
