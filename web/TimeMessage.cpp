#include "web/TimeMessage.h"

#include <algorithm>
#include <array>
#include <bit>
#include <cmath>

#include "support/ByteReader.h"
#include "support/DateText.h"

namespace netro {
namespace {

using std::chrono::floor;
using std::chrono::milliseconds;
using std::chrono::nanoseconds;
using std::chrono::seconds;
using std::chrono::sys_seconds;

constexpr seconds k1900(-2'208'988'800);  // as the system counts, from 1970
constexpr std::int64_t kEra = 1LL << 32;
constexpr std::uint32_t kFirstOfThisEra = 1u << 31;  // 1968

constexpr std::uint8_t kVersion3Client = 27;
constexpr std::uint8_t kVersion4Client = 35;
constexpr std::size_t kOriginateTime = 24;
constexpr std::size_t kTransmitTime = 40;
constexpr std::size_t kStampSize = 8;

constexpr std::uint8_t kPrimary = 1;
constexpr std::uint8_t kFirstReserved = 15;

// Seconds since 1900 of this era, or of the next one when they would lie before 1968.
sys_seconds TimeOf(std::uint32_t stamp) {
  return sys_seconds(k1900 + seconds(stamp < kFirstOfThisEra ? stamp + kEra : stamp));
}

double Seconds(nanoseconds time) { return std::chrono::duration<double>(time).count(); }

double Fraction(std::uint32_t fraction) { return fraction / static_cast<double>(kEra); }

SNTPModeEnum ModeOf(std::uint8_t bits) {
  switch (bits) {
    case 1:
      return SNTPModeEnum::SymmetricActive;
    case 2:
      return SNTPModeEnum::SymmetricPassive;
    case 3:
      return SNTPModeEnum::SNTPClient;
    case 4:
      return SNTPModeEnum::SNTPServer;
    case 5:
      return SNTPModeEnum::Broadcast;
    default:
      return SNTPModeEnum::Unknown;
  }
}

SNTPStratumEnum StratumOf(std::uint8_t stratum) {
  if (stratum == 0) return SNTPStratumEnum::Unspecified;
  if (stratum == kPrimary) return SNTPStratumEnum::PrimaryReference;
  return stratum < kFirstReserved ? SNTPStratumEnum::SecondaryReference : SNTPStratumEnum::reserved;
}

// Four characters, some of which may be filling.
std::string Word(std::span<const std::uint8_t> bytes) {
  std::string word;
  for (const std::uint8_t byte : bytes) {
    if (byte > ' ' && byte < 0x7F) word += static_cast<char>(byte);
  }
  return word;
}

// The factor of 4096 is what programs know these numbers by.
double RootValue(std::uint32_t number) { return number / 65536.0 * 4096.0; }

void SetTime(sys_seconds time, double correction, const TimeExchange& exchange,
             TimeResult& result) {
  result.dateTime = AddSeconds(ToDate(time), correction);
  const auto received = exchange.sent + exchange.roundTrip + exchange.localOffset;
  const auto server =
      std::llround(static_cast<double>(time.time_since_epoch().count()) + correction);
  result.difference =
      static_cast<double>(floor<seconds>(received).time_since_epoch().count() - server);
}

std::int32_t ReadSeconds(ByteReader reader, const TimeExchange& exchange, TimeResult& result) {
  const std::uint32_t stamp = reader.U32();
  if (stamp == 0) return kTimeZero;
  SetTime(TimeOf(stamp), std::floor(Seconds(exchange.roundTrip) / 2), exchange, result);
  return 0;
}

void ReadReference(ByteReader reader, const TimeExchange& exchange, TimeResult& result,
                   std::optional<std::int32_t>& reference) {
  const auto bytes = reader.Take(4);
  ByteReader number(bytes);
  const std::uint32_t value = number.U32();
  switch (result.stratum) {
    case SNTPStratumEnum::Unspecified:
      result.kissCode = Word(bytes);
      break;
    case SNTPStratumEnum::PrimaryReference:
      result.referenceId = Word(bytes);
      break;
    case SNTPStratumEnum::SecondaryReference:
      if (exchange.version == 3) {
        reference =
            std::bit_cast<std::int32_t>(std::to_array({bytes[0], bytes[1], bytes[2], bytes[3]}));
      } else if (value != 0) {
        result.referenceId = DateToText(ToDate(TimeOf(value)));
      }
      break;
    case SNTPStratumEnum::reserved:
      break;
  }
}

// RFC 4330, section 5. Some servers do not tell when they received the request.
void SetOffset(ByteReader receive, ByteReader transmit, const TimeExchange& exchange,
               TimeResult& result) {
  if (ByteReader(receive).U32() == 0) return;
  // Differences to the moment of sending, so that a double keeps its fractions.
  const auto origin = floor<seconds>(exchange.sent);
  const auto sinceOrigin = [&](ByteReader& stamp) {
    const double whole = static_cast<double>((TimeOf(stamp.U32()) - origin).count());
    return whole + Fraction(stamp.U32());
  };
  const double sent = Seconds(exchange.sent - origin);
  const double received = sent + Seconds(exchange.roundTrip);
  const double arrived = sinceOrigin(receive);
  const double answered = sinceOrigin(transmit);
  result.offset = ((arrived - sent) + (answered - received)) / 2;
  result.delay = (received - sent) - (answered - arrived);
}

std::int32_t ReadSntp(std::span<const std::uint8_t> reply, const TimeExchange& exchange,
                      TimeResult& result, std::optional<std::int32_t>& reference) {
  ByteReader reader(reply);
  const std::uint8_t flags = reader.U8();
  result.leapIndicator = static_cast<SNTPLeapIndicatorEnum>(flags >> 6);
  result.mode = ModeOf(flags & 7);
  result.stratumNumber = reader.U8();
  result.stratum = StratumOf(static_cast<std::uint8_t>(result.stratumNumber));
  result.pollInterval = std::exp2(reader.U8());
  result.precision = std::exp2(reader.U8());
  result.rootDelay = RootValue(reader.U32());
  result.rootDispersion = RootValue(reader.U32());
  ReadReference(reader, exchange, result, reference);

  ByteReader transmit(reply.last(kStampSize));
  const std::uint32_t stamp = ByteReader(transmit).U32();
  if (stamp == 0) return kTimeNoTransmitTime;
  SetTime(TimeOf(stamp), -Seconds(exchange.roundTrip) / 2, exchange, result);
  SetOffset(ByteReader(reply.subspan(kTransmitTime - kStampSize)), transmit, exchange, result);
  return 0;
}

}  // namespace

Bytes ComposeTimeRequest(const TimeExchange& exchange) {
  const auto local = floor<seconds>(exchange.sent + exchange.localOffset).time_since_epoch();
  const auto whole = static_cast<std::uint64_t>((local - k1900).count());
  const std::uint64_t stamp = whole << 32 | exchange.fraction;
  Bytes request(kSntpSize);
  request[0] = exchange.version == 3 ? kVersion3Client : kVersion4Client;
  for (std::size_t i = 0; i < kStampSize; ++i) {
    request[kTransmitTime + i] = static_cast<std::uint8_t>(stamp >> (56 - 8 * i));
  }
  return request;
}

bool AnswersTimeRequest(std::span<const std::uint8_t> reply,
                        std::span<const std::uint8_t> request) {
  return std::ranges::equal(reply.subspan(kOriginateTime, kStampSize),
                            request.subspan(kTransmitTime, kStampSize));
}

std::int32_t ReadTimeReply(std::span<const std::uint8_t> reply, const TimeExchange& exchange,
                           TimeResult& result, std::optional<std::int32_t>& reference) {
  result = {};
  reference.reset();
  result.roundTrip = Seconds(exchange.roundTrip);
  if (reply.size() == kTimeSize) return ReadSeconds(ByteReader(reply), exchange, result);
  if (reply.size() == kSntpSize) return ReadSntp(reply, exchange, result, reference);
  return kTimeWrongLength;
}

}  // namespace netro
