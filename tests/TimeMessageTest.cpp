// The messages of the time client by themselves: a request, and each field of a reply.
#include <netro/testkit/TimeReply.h>

#include <cmath>

#include "TestKit.h"
#include "platform/Sockets.h"
#include "support/DateText.h"
#include "tests/Environment.h"
#include "web/TimeMessage.h"

namespace netro {
namespace {

using namespace std::chrono;

using Moment = sys_time<nanoseconds>;

constexpr Moment kNow = sys_days(2026y / 11 / 21) + 12h;
constexpr std::uint32_t kStampOfNow = 4'004'251'200;

std::string Text(const Bytes& bytes) { return {bytes.begin(), bytes.end()}; }

std::span<const std::uint8_t> BytesOf(const std::string& text) {
  return {reinterpret_cast<const std::uint8_t*>(text.data()), text.size()};
}

TimeExchange ExchangeAt(Moment sent, nanoseconds roundTrip = 0ns, seconds localOffset = 0s) {
  TimeExchange exchange;
  exchange.sent = sent;
  exchange.roundTrip = roundTrip;
  exchange.localOffset = localOffset;
  return exchange;
}

// A reply as it is read.
struct Reading {
  explicit Reading(const std::string& reply, const TimeExchange& exchange = ExchangeAt(kNow)) {
    result.referenceId = "left over";
    error = ReadTimeReply(BytesOf(reply), exchange, result, reference);
    text = result.dateTime == 0 ? "0" : DateToText(result.dateTime);
  }

  TimeResult result;
  std::optional<std::int32_t> reference = 1;
  std::int32_t error = 0;
  std::string text;
};

TimeReply Good() { return TimeReply().Stratum(1).Receive(kStampOfNow).Transmit(kStampOfNow); }

TEST(TimeRequest, FirstByteTellsTheVersionAndTheLastFourAreTheFraction) {
  const std::pair<std::int32_t, char> kCases[] = {
      {3, 27}, {4, 35}, {5, 35}, {2, 35}, {0, 35}, {-1, 35}, {2'147'483'647, 35}};
  for (const auto& [version, first] : kCases) {
    TimeExchange exchange = ExchangeAt(kNow + 999'999'999ns);
    exchange.version = version;
    exchange.fraction = 0xFEDC'BA98;
    EXPECT_EQ(Text(ComposeTimeRequest(exchange)),
              first + std::string(39, '\0') + Big32(kStampOfNow) + Big32(exchange.fraction))
        << version;
  }
}

TEST(TimeRequest, CarriesTheTimeOfTheZone) {
  const Moment kNewYear = sys_days(2000y / 1 / 1);
  const Moment kSummer = sys_days(2026y / 3 / 29) + 1h;  // begins in central Europe
  const Moment kEraEnd = sys_days(2036y / 2 / 7) + 6h + 28min + 16s;
  const std::tuple<const char*, Moment, std::uint32_t> kCases[] = {
      {"UTC0", kNow, kStampOfNow},
      {"CET-1CEST,M3.5.0,M10.5.0/3", kSummer - 1ns, 3'983'734'799 + 3600},
      {"CET-1CEST,M3.5.0,M10.5.0/3", kSummer, 3'983'734'800 + 7200},
      {"NPT-5:45", kNow, kStampOfNow + 20'700},
      {"NST3:30", kNow, kStampOfNow - 12'600},
      {"<+14>-14", kNewYear - 14h - 1s, kStampOf2000 - 1},
      {"<+14>-14", kNewYear - 14h, kStampOf2000},
      {"<-12>12", kNewYear, kStampOf2000 - 43'200},
      {"UTC0", kEraEnd, 0},
      {"CET-1", kEraEnd, 3600},
      {"<-01>1", kEraEnd, 0xFFFF'FFFF - 3599},
  };
  for (const auto& [name, sent, stamp] : kCases) {
    const TimeZone zone(name);
    const TimeExchange exchange = ExchangeAt(sent, 0ns, LocalTimeOffset(sent));
    EXPECT_EQ(Text(ComposeTimeRequest(exchange)).substr(40, 4), Big32(stamp))
        << name << " " << exchange.localOffset.count();
  }
}

TEST(TimeReplyReading, OnlyARepeatedTransmitTimeIsAnAnswer) {
  const std::string request = Text(ComposeTimeRequest(ExchangeAt(kNow)));
  TimeReply reply = Good().Originate(testkit::TransmitOf(request));
  EXPECT_TRUE(AnswersTimeRequest(BytesOf(reply.Bytes()), BytesOf(request)));
  for (std::size_t at = 0; at < 48; ++at) {
    std::string other = reply.Bytes();
    other[at] = static_cast<char>(other[at] ^ 1);
    EXPECT_EQ(AnswersTimeRequest(BytesOf(other), BytesOf(request)), at < 24 || at >= 32) << at;
  }
}

TEST(TimeReplyReading, LengthIsFourOr48) {
  for (const std::size_t size : {0u, 3u, 5u, 47u, 49u, 68u, 65'507u}) {
    const Reading reading(std::string(size, '\x7F'), ExchangeAt(kNow, 250ms));
    EXPECT_EQ(reading.error, 100003) << size;
    EXPECT_EQ(reading.result.dateTime, 0);
    EXPECT_EQ(reading.result.difference, 0);
    EXPECT_EQ(reading.result.roundTrip, 0.25);
    EXPECT_EQ(reading.result.referenceId, "");
    EXPECT_EQ(reading.reference, std::nullopt);
  }
}

// Four bytes are seconds, and half the round trip is counted in whole ones; an SNTP reply is so
// much older.
TEST(TimeReplyReading, HalfTheRoundTripIsCounted) {
  const struct {
    std::uint32_t stamp;
    nanoseconds roundTrip;
    const char *four, *sntp;
  } kCases[] = {
      {kStampOfNow, 0ns, "2026-11-21T12:00:00.000Z", "2026-11-21T12:00:00.000Z"},
      {kStampOfNow, 500ms, "2026-11-21T12:00:00.000Z", "2026-11-21T11:59:59.750Z"},
      {kStampOfNow, 1'999'999'999ns, "2026-11-21T12:00:00.000Z", "2026-11-21T11:59:59.000Z"},
      {kStampOfNow, 2s, "2026-11-21T12:00:01.000Z", "2026-11-21T11:59:59.000Z"},
      {kStampOfNow, 3'998ms, "2026-11-21T12:00:01.000Z", "2026-11-21T11:59:58.001Z"},
      {kStampOf2000 - 1, 2s, "2000-01-01T00:00:00.000Z", "1999-12-31T23:59:58.000Z"},
      {kStampOf2000, 2ms, "2000-01-01T00:00:00.000Z", "1999-12-31T23:59:59.999Z"},
      {kStampOf2000 + 60 * 86'400 - 1, 2s, "2000-03-01T00:00:00.000Z", "2000-02-29T23:59:58.000Z"},
      {0x8000'0000, 2s, "1968-01-20T03:14:09.000Z", "1968-01-20T03:14:07.000Z"},
      {0x7FFF'FFFF, 0ns, "2104-02-26T09:42:23.000Z", "2104-02-26T09:42:23.000Z"},
      {0xFFFF'FFFF, 2s, "2036-02-07T06:28:16.000Z", "2036-02-07T06:28:14.000Z"},
      {1, 4s, "2036-02-07T06:28:19.000Z", "2036-02-07T06:28:15.000Z"},
      {testkit::kTimeOf1970 - 1, 0ns, "1969-12-31T23:59:59.000Z", "1969-12-31T23:59:59.000Z"},
  };
  for (const auto& c : kCases) {
    const TimeExchange exchange = ExchangeAt(kNow, c.roundTrip);
    const Reading four(Big32(c.stamp), exchange);
    const Reading sntp(Good().Transmit(c.stamp, 0xFFFF'FFFF).Bytes(), exchange);
    EXPECT_EQ(four.text, c.four);
    EXPECT_EQ(sntp.text, c.sntp);
    EXPECT_EQ(four.result.mode, SNTPModeEnum::Unknown);
    EXPECT_EQ(four.result.offset, 0);
    for (const Reading& reading : {four, sntp}) {
      EXPECT_EQ(reading.error, 0) << c.four;
      EXPECT_EQ(reading.result.roundTrip, duration<double>(c.roundTrip).count());
    }
  }
}

TEST(TimeReplyReading, ZeroIsNoTime) {
  const std::string sntp = Good().Leap(3).Poll(4).Id("GPS").Transmit(0, 1).Bytes();
  for (const std::string& reply : {Big32(0), sntp}) {
    const Reading reading(reply, ExchangeAt(kNow, 8s));
    EXPECT_EQ(reading.error, reply == sntp ? 100000 : 100002);
    EXPECT_EQ(reading.result.dateTime, 0);
    EXPECT_EQ(reading.result.difference, 0);
    EXPECT_EQ(reading.result.offset, 0);
    EXPECT_EQ(reading.result.delay, 0);
    EXPECT_EQ(reading.result.roundTrip, 8);
  }
  const TimeResult rest = Reading(sntp).result;
  EXPECT_EQ(rest.leapIndicator, SNTPLeapIndicatorEnum::Alarm);
  EXPECT_EQ(rest.pollInterval, 16);
  EXPECT_EQ(rest.referenceId, "GPS");
}

TEST(TimeReplyReading, LeapAndMode) {
  const SNTPModeEnum kModes[] = {SNTPModeEnum::Unknown,          SNTPModeEnum::SymmetricActive,
                                 SNTPModeEnum::SymmetricPassive, SNTPModeEnum::SNTPClient,
                                 SNTPModeEnum::SNTPServer,       SNTPModeEnum::Broadcast,
                                 SNTPModeEnum::Unknown,          SNTPModeEnum::Unknown};
  for (int leap = 0; leap < 4; ++leap)
    for (int mode = 0; mode < 8; ++mode) {
      const Reading reading(Good().Leap(leap).Mode(mode).Bytes());
      EXPECT_EQ(reading.error, 0);
      EXPECT_EQ(static_cast<int>(reading.result.leapIndicator), leap);
      EXPECT_EQ(reading.result.mode, kModes[mode]) << mode;
    }
}

TEST(TimeReplyReading, StratumClassesAndUnsignedExponents) {
  using enum SNTPStratumEnum;
  for (int byte = 0; byte < 256; ++byte) {
    const Reading reading(Good().Stratum(byte).Poll(byte).Precision(255 - byte).Bytes());
    EXPECT_EQ(reading.error, 0);
    EXPECT_EQ(reading.result.stratumNumber, byte);
    EXPECT_EQ(reading.result.stratum, byte == 0    ? Unspecified
                                      : byte == 1  ? PrimaryReference
                                      : byte <= 14 ? SecondaryReference
                                                   : reserved)
        << byte;
    EXPECT_EQ(reading.result.pollInterval, std::ldexp(1.0, byte));
    EXPECT_EQ(reading.result.precision, std::ldexp(1.0, 255 - byte));
  }
}

TEST(TimeReplyReading, RootValues) {
  const std::pair<std::uint32_t, double> kCases[] = {
      {0, 0}, {1, 0.0625}, {0x0102'0304, 1'056'816.25}, {0x8000'0000, 134'217'728.0}};
  for (const auto& [number, value] : kCases) {
    const Reading reading(Good().RootDelay(number).RootDispersion(~number).Bytes());
    EXPECT_EQ(reading.result.rootDelay, value);
    EXPECT_EQ(reading.result.rootDispersion, 268'435'455.9375 - value);
  }
}

TEST(TimeReplyReading, ReferenceIdentifier) {
  const struct {
    int stratum;
    std::int32_t version;
    std::string bytes, id, kiss, address;
  } kCases[] = {
      {1, 3, "GPS\0"s, "GPS", "", ""},
      {1, 4, "PPS1", "PPS1", "", ""},
      {1, 3, "A\x1B[\x07"s, "A[", "", ""},
      {1, 3, " \x7F\x80\xFF"s, "", "", ""},
      {0, 3, "RATE", "", "RATE", ""},
      {0, 4, "DE\nY", "", "DEY", ""},
      {0, 3, "\0\0\0\0"s, "", "", ""},
      {2, 3, "\xC0\0\x02\x07"s, "", "", "192.0.2.7"},
      {14, 3, "\xFF\xFE\xFD\xFC"s, "", "", "255.254.253.252"},
      {2, 4, Big32(kStampOf2000), "2000-01-01T00:00:00.000Z", "", ""},
      {2, 5, Big32(1), "2036-02-07T06:28:17.000Z", "", ""},
      {2, 4, Big32(0), "", "", ""},
      {15, 3, "GPS\0"s, "", "", ""},
  };
  for (const auto& c : kCases) {
    TimeExchange exchange = ExchangeAt(kNow);
    exchange.version = c.version;
    const Reading reading(Good().Stratum(c.stratum).Id(c.bytes).Bytes(), exchange);
    SCOPED_TRACE(c.bytes + " of stratum " + std::to_string(c.stratum));
    EXPECT_EQ(reading.error, 0);
    EXPECT_EQ(reading.result.referenceId, c.id);
    EXPECT_EQ(reading.result.kissCode, c.kiss);
    EXPECT_EQ(reading.reference ? FormatDotted(*reading.reference) : "", c.address);
  }
}

TEST(TimeReplyReading, DifferenceIsLocalTimeLessTheServersInWholeSeconds) {
  const struct {
    Moment sent;
    nanoseconds roundTrip;
    seconds localOffset;
    std::uint32_t server;
    double difference48, difference4;
  } kCases[] = {
      {kNow, 0ns, 0s, kStampOfNow, 0, 0},
      {kNow, 0ns, 0s, kStampOfNow + 90, -90, -90},  // the server is ahead
      {kNow, 0ns, 0s, kStampOfNow - 90, 90, 90},
      {kNow, 0ns, 3600s, kStampOfNow, 3600, 3600},
      // Local time of receipt; half the round trip goes off the one and onto the other.
      {kNow, 10s, 0s, kStampOfNow, 15, 5},
      {kNow + 600ms, 800ms, 0s, kStampOfNow, 1, 1},
      {kNow, 0ns, 0s, 0x8000'0000, 1'856'767'552, 1'856'767'552},
      {kNow, 0ns, 0s, 1, -290'716'097, -290'716'097},
      {sys_days(2036y / 2 / 7) + 6h + 28min + 17s, 0ns, 0s, 0xFFFF'FFFF, 2, 2},
  };
  for (const auto& c : kCases) {
    const TimeExchange exchange = ExchangeAt(c.sent, c.roundTrip, c.localOffset);
    EXPECT_EQ(Reading(Good().Transmit(c.server).Bytes(), exchange).result.difference,
              c.difference48)
        << c.server;
    EXPECT_EQ(Reading(Big32(c.server), exchange).result.difference, c.difference4) << c.server;
  }
}

TEST(TimeReplyReading, OffsetAndDelayByFourTimestamps) {
  constexpr std::uint32_t kQuarter = 0x4000'0000, kHalf = 0x8000'0000;
  const Moment kEraEnd = sys_days(2036y / 2 / 7) + 6h + 28min + 16s;
  const struct {
    Moment sent;
    nanoseconds roundTrip;
    std::uint32_t receive, receiveFraction, transmit, transmitFraction;
    double offset, delay;
  } kCases[] = {
      {kNow, 0ns, kStampOfNow, 0, kStampOfNow, 0, 0, 0},
      {kNow, 500ms, kStampOfNow, kQuarter, kStampOfNow, kQuarter, 0, 0.5},
      {kNow + 250ms, 500ms, kStampOfNow + 10, kHalf, kStampOfNow + 10, kHalf + kQuarter, 10.125,
       0.25},
      {kNow, 1s, kStampOfNow - 3600, kHalf, kStampOfNow - 3600, kHalf, -3600, 1},
      {kNow, 4s, kStampOfNow + 1, 0, kStampOfNow + 3, 0, 0, 2},
      {kNow, 1s, 0, 5, kStampOfNow, 0, 0, 0},  // no time of receipt, no offset
      {kNow, 0ns, kStampOf2000, 1, kStampOf2000, 1, -848'577'600 + std::ldexp(1, -32), 0},
      {kEraEnd - 500ms, 1s, 0xFFFF'FFFF, kHalf, 1, kHalf, 0.5, -1},
      {kEraEnd, 0ns, 0x8000'0000, 0, 0x8000'0000, 0, -2'147'483'648.0, 0},
  };
  for (const auto& c : kCases) {
    const Reading reading(Good()
                              .Receive(c.receive, c.receiveFraction)
                              .Transmit(c.transmit, c.transmitFraction)
                              .Bytes(),
                          ExchangeAt(c.sent, c.roundTrip, 7200s));
    EXPECT_NEAR(reading.result.offset, c.offset, 1e-6) << c.receive;
    EXPECT_NEAR(reading.result.delay, c.delay, 1e-6) << c.receive;
  }
}

}  // namespace
}  // namespace netro
