#include "mail/SmtpTables.h"

#include <netro/Localization.h>

#include <charconv>
#include <limits>

#include "support/Text.h"

namespace netro {
namespace {

constexpr std::int32_t kDefaultSeconds = 60;
constexpr std::int32_t kTextStepName = 7200;

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

std::int32_t StepTimeOut(std::string_view table, std::int32_t step) {
  const std::string entry = std::to_string(step) + ':';
  const std::size_t at = table.find(entry);
  if (at == table.npos) return kDefaultSeconds;
  const std::string_view digits = table.substr(at + entry.size());
  std::uint32_t seconds = 0;
  const auto error = std::from_chars(digits.data(), digits.data() + digits.size(), seconds).ec;
  if (error != std::errc() || seconds > std::numeric_limits<std::int32_t>::max()) {
    return kDefaultSeconds;
  }
  return static_cast<std::int32_t>(seconds);
}

std::string StepName(std::int32_t step) {
  if (step > std::numeric_limits<std::int32_t>::max() - kTextStepName) return {};
  return GetMessageText(kTextStepName + step);
}

}  // namespace netro
