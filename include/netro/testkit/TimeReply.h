// Builds the messages of time servers byte by byte, right or wrong as the test wants them: the 48
// bytes of SNTP (RFC 4330, section 4) and the 4 bytes of the time protocol (RFC 868). It shares
// nothing with the library. Thread: any, one object on one thread at a time.
//
//   TimeReply().Stratum(1).Id("GPS").Originate(TransmitOf(request)).Transmit(now).Bytes()
#pragma once

#include <netro/Export.h>

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace netro::testkit {

/// Seconds from 1900 to 1970.
inline constexpr std::uint32_t kTimeOf1970 = 2'208'988'800;

/// The beginning of 2000 as a stamp.
inline constexpr std::uint32_t kStampOf2000 = 3'155'673'600;
/// The same as text.
inline constexpr char k2000[] = "2000-01-01T00:00:00.000Z";

/// A number in network order; the time protocol's whole reply.
inline std::string Big32(std::uint32_t value) {
  std::string bytes;
  for (int shift = 24; shift >= 0; shift -= 8) bytes += static_cast<char>(value >> shift & 255);
  return bytes;
}

/// The transmit timestamp of a request, which a reply repeats as its originate timestamp.
inline std::string TransmitOf(const std::string& request) {
  return request.size() < 48 ? std::string(8, '\0') : request.substr(40, 8);
}

/// A reply of 48 bytes, all 0 but for the mode, which is a server's, and the version, 3.
class NETRO_EXPORT TimeReply {
 public:
  TimeReply() : bytes_(48, '\0') { Leap(0).Mode(4); }

  /// The fields of RFC 5905, section 7.3, as numbers; times are in their units.
  TimeReply& Leap(int value) { return Flags(value, mode_); }
  TimeReply& Mode(int value) { return Flags(leap_, value); }
  TimeReply& Stratum(int value) { return Put(1, {static_cast<char>(value)}); }
  TimeReply& Poll(int value) { return Put(2, {static_cast<char>(value)}); }
  TimeReply& Precision(int value) { return Put(3, {static_cast<char>(value)}); }
  TimeReply& RootDelay(std::uint32_t value) { return Put(4, Big32(value)); }
  TimeReply& RootDispersion(std::uint32_t value) { return Put(8, Big32(value)); }
  /// The reference identifier; up to four bytes.
  TimeReply& Id(std::string_view bytes) { return Put(12, std::string(bytes)); }
  TimeReply& Reference(std::uint32_t seconds) { return Put(16, Big32(seconds)); }
  TimeReply& Originate(const std::string& stamp) { return Put(24, stamp); }
  TimeReply& Receive(std::uint32_t seconds, std::uint32_t fraction = 0) {
    return Put(32, Big32(seconds) + Big32(fraction));
  }
  TimeReply& Transmit(std::uint32_t seconds, std::uint32_t fraction = 0) {
    return Put(40, Big32(seconds) + Big32(fraction));
  }

  /// The whole reply.
  const std::string& Bytes() const { return bytes_; }

 private:
  TimeReply& Flags(int leap, int mode) {
    leap_ = leap;
    mode_ = mode;
    return Put(0, {static_cast<char>(leap << 6 | 3 << 3 | mode)});
  }
  TimeReply& Put(std::size_t at, const std::string& bytes) {
    bytes_.replace(at, bytes.size(), bytes);
    return *this;
  }

  std::string bytes_;
  int leap_ = 0;
  int mode_ = 0;
};

/// Of a secondary server in 2000, whose reference is 192.0.2.7.
inline TimeReply SecondaryReply() {
  return TimeReply().Stratum(2).Id(std::string_view("\xC0\0\x02\x07", 4)).Transmit(kStampOf2000);
}

}  // namespace netro::testkit
