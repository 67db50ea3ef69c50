#include "mail/SmtpTables.h"

#include <netro/Localization.h>

#include <charconv>
#include <limits>

#include "support/Text.h"

namespace netro {
namespace {

constexpr std::chrono::seconds kDefaultTime(60);
constexpr std::int32_t kTextStepName = 7200;

// ".25" and what follows.
std::chrono::milliseconds Fraction(std::string_view text) {
  std::chrono::milliseconds time(0);
  if (!text.starts_with('.')) return time;
  int worth = 100;
  for (std::size_t i = 1; i < text.size() && text[i] >= '0' && text[i] <= '9'; ++i, worth /= 10) {
    time += std::chrono::milliseconds(worth * (text[i] - '0'));
  }
  return time;
}

std::string Wrapped(std::string_view text, char separator) {
  return separator + ToLower(text) + separator;
}

}  // namespace

bool IsInList(std::string_view list, std::string_view item, char separator) {
  return Wrapped(list, separator).find(Wrapped(item, separator)) != std::string::npos;
}

bool HasStepEntry(std::string_view table, std::int32_t step, std::int32_t code) {
  return IsInList(table, std::to_string(step) + ':' + std::to_string(code));
}

bool IsDecision(std::int32_t code) {
  const std::int32_t digit = code / 100;
  return digit == 2 || digit == 4 || digit == 5;
}

std::chrono::milliseconds StepTimeOut(std::string_view table, std::int32_t step) {
  const std::string entry = std::to_string(step) + ':';
  const std::size_t at = table.find(entry);
  if (at == table.npos) return kDefaultTime;
  const std::string_view digits = table.substr(at + entry.size());
  std::uint32_t seconds = 0;
  const char* const end = digits.data() + digits.size();
  const auto [rest, error] = std::from_chars(digits.data(), end, seconds);
  if (error != std::errc() || seconds > std::numeric_limits<std::int32_t>::max()) {
    return kDefaultTime;
  }
  return std::chrono::seconds(seconds) + Fraction({rest, end});
}

std::string StepName(std::int32_t step) {
  if (step > std::numeric_limits<std::int32_t>::max() - kTextStepName) return {};
  return GetMessageText(kTextStepName + step);
}

}  // namespace netro
