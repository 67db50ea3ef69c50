// The messages of SNTP (RFC 4330, section 4) and of the time protocol (RFC 868). Any thread.
#pragma once

#include <netro/QueryTimeCLS.h>
#include <netro/Types.h>

#include <chrono>
#include <cstdint>
#include <optional>
#include <span>

namespace netro {

inline constexpr std::size_t kSntpSize = 48;
inline constexpr std::size_t kTimeSize = 4;

enum TimeError : std::int32_t {
  kTimeNoTransmitTime = 100000,
  kTimeZero = 100002,
  kTimeWrongLength = 100003,
};

/// When a request went out and what its reply met, by this system's clocks.
struct TimeExchange {
  std::int32_t version = 3;
  std::uint32_t fraction = 0;                            // of the request's transmit time
  std::chrono::sys_time<std::chrono::nanoseconds> sent;  // UTC
  std::chrono::seconds localOffset{0};                   // what the time zone adds to UTC
  std::chrono::nanoseconds roundTrip{0};
};

/// The request of an SNTP client; its transmit time is the local one, in whole seconds.
Bytes ComposeTimeRequest(const TimeExchange& exchange);

/// True when an SNTP reply repeats the request's transmit time as its originate time.
bool AnswersTimeRequest(std::span<const std::uint8_t> reply, std::span<const std::uint8_t> request);

/// Reads a reply by its length. Returns 0, or the error number with a date of 0. With a secondary
/// reference of version 3 `reference` is its address, whose name belongs into referenceId.
std::int32_t ReadTimeReply(std::span<const std::uint8_t> reply, const TimeExchange& exchange,
                           TimeResult& result, std::optional<std::int32_t>& reference);

}  // namespace netro
