// Reads a time server's reply. The first byte chooses the version asked with; the rest is the
// reply. Whatever it says, the results stay within what their types and texts allow.
#include <chrono>
#include <cmath>

#include "fuzz/Fuzz.h"
#include "support/DateText.h"
#include "web/TimeMessage.h"

namespace {

bool IsPrintable(const std::string& text) {
  return std::ranges::all_of(text, [](char c) { return c > ' ' && c < 0x7F; });
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size == 0) return 0;
  netro::TimeExchange exchange;
  exchange.version = data[0] & 7;
  exchange.sent = std::chrono::sys_days(std::chrono::year(2026) / 11 / 21);
  exchange.roundTrip = std::chrono::milliseconds(data[0]);
  const std::span<const std::uint8_t> reply(data + 1, size - 1);

  netro::TimeResult result;
  std::optional<std::int32_t> reference;
  const std::int32_t error = netro::ReadTimeReply(reply, exchange, result, reference);
  const bool isRead = reply.size() == netro::kTimeSize || reply.size() == netro::kSntpSize;
  if ((error == netro::kTimeWrongLength) == isRead) std::abort();
  if ((result.dateTime == 0) != (error != 0)) std::abort();
  if (error == 0 && netro::DateToText(result.dateTime).empty()) std::abort();
  if (!std::isfinite(result.offset) || !std::isfinite(result.delay)) std::abort();
  if (!IsPrintable(result.kissCode) || !IsPrintable(result.referenceId)) std::abort();
  if (reference && result.stratum != netro::SNTPStratumEnum::SecondaryReference) std::abort();

  const netro::Bytes request = netro::ComposeTimeRequest(exchange);
  if (request.size() != netro::kSntpSize) std::abort();
  if (reply.size() == netro::kSntpSize) netro::AnswersTimeRequest(reply, request);
  return 0;
}
