#include "dns/DnsLocation.h"

#include <string>

namespace netro {
namespace {

constexpr std::uint32_t kZeroDegrees = 0x80000000;
constexpr std::int64_t kAltitudeBase = 10'000'000;  // centimetres
constexpr std::uint32_t kRightAngle = 90u * 3'600'000;

std::string Padded(std::uint64_t number, std::size_t digits) {
  const std::string text = std::to_string(number);
  return text.size() >= digits ? text : std::string(digits - text.size(), '0') + text;
}

std::uint32_t Distance(std::uint32_t angle) {
  return angle >= kZeroDegrees ? angle - kZeroDegrees : kZeroDegrees - angle;
}

// "52 22 23.000 N"
std::string AngleText(std::uint32_t angle, char positive, char negative) {
  const std::uint32_t distance = Distance(angle);
  return std::to_string(distance / 3'600'000) + " " + std::to_string(distance / 60'000 % 60) + " " +
         std::to_string(distance / 1000 % 60) + "." + Padded(distance % 1000, 3) + " " +
         (angle >= kZeroDegrees ? positive : negative);
}

// Four bits each: a mantissa, and an exponent of ten, of centimetres.
bool IsSize(std::uint8_t size) { return (size >> 4) <= 9 && (size & 15) <= 9; }

std::string SizeText(std::uint8_t size) {
  const int exponent = size & 15;
  std::uint64_t centimetres = size >> 4;
  for (int i = 0; i < exponent; ++i) centimetres *= 10;
  if (exponent >= 2) return std::to_string(centimetres / 100) + "m";
  return "0." + Padded(centimetres, 2) + "m";
}

std::string AltitudeText(std::uint32_t altitude) {
  const std::int64_t centimetres = std::int64_t{altitude} - kAltitudeBase;
  const auto size = static_cast<std::uint64_t>(centimetres < 0 ? -centimetres : centimetres);
  return (centimetres < 0 ? "-" : "") + std::to_string(size / 100) + "." + Padded(size % 100, 2) +
         "m";
}

}  // namespace

bool ReadLocation(ByteReader& reader, DNSCLS& record) {
  const std::uint8_t version = reader.U8();
  const std::uint8_t size = reader.U8();
  const std::uint8_t horizontal = reader.U8();
  const std::uint8_t vertical = reader.U8();
  const std::uint32_t latitude = reader.U32();
  const std::uint32_t longitude = reader.U32();
  const std::uint32_t altitude = reader.U32();
  if (version != 0) return false;
  if (!reader.Ok()) return true;  // too short, as the reader tells
  if (!IsSize(size) || !IsSize(horizontal) || !IsSize(vertical)) return false;
  if (Distance(latitude) > kRightAngle || Distance(longitude) > 2 * kRightAngle) return false;

  record.LOC_SIZE(size);
  record.LOC_HORIZ_PRE(horizontal);
  record.LOC_VERT_PRE(vertical);
  record.LOC_LATITUDE(latitude);
  record.LOC_LATITUDE_COORD(AngleText(latitude, 'N', 'S'));
  record.LOC_LONGITUDE(longitude);
  record.LOC_LONGITUDE_COORD(AngleText(longitude, 'E', 'W'));
  record.LOC_ALTITUDE(static_cast<std::int32_t>(altitude));
  record.Data(record.LOC_LATITUDE_COORD() + " " + record.LOC_LONGITUDE_COORD() + " " +
              AltitudeText(altitude) + " " + SizeText(size) + " " + SizeText(horizontal) + " " +
              SizeText(vertical));
  return true;
}

}  // namespace netro
