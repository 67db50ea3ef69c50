// EDNSCLS: the OPT record of a DNS reply (RFC 6891, section 6.1): what the server tells about
// itself and about the message beside its records.
//
// A plain value.
#pragma once

#include <netro/Export.h>

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

namespace netro {

/// One option: its number, and its bytes as they came.
struct EDNSOption {
  std::int32_t Code = 0;  // OPTION-CODE, such as 8, a client subnet
  std::string Data;       // OPTION-DATA
};

class NETRO_EXPORT EDNSCLS {
 public:
  /// The largest datagram that the server takes, in bytes.
  std::int32_t UDPSize() const { return udpSize_; }
  void UDPSize(std::int32_t value) { udpSize_ = value; }
  /// The upper eight bits of the response code; QueryDNSCLS::ReplyCode is the whole one.
  std::int32_t ExtendedRCODE() const { return extendedCode_; }
  void ExtendedRCODE(std::int32_t value) { extendedCode_ = value; }
  /// Of EDNS, as the server speaks it: 0, since there is no other yet.
  std::int32_t Version() const { return version_; }
  void Version(std::int32_t value) { version_ = value; }
  /// All 16 flags.
  std::int32_t Flags() const { return flags_; }
  void Flags(std::int32_t value) { flags_ = value; }
  /// The flag of value 0x8000: the server has taken note of QueryDNSCLS::DNSSECOK.
  bool DNSSECOK() const { return (flags_ & 0x8000) != 0; }
  /// In the order in which they came.
  const std::vector<EDNSOption>& Options() const { return options_; }
  void Options(std::vector<EDNSOption> value) { options_ = std::move(value); }

 private:
  std::int32_t udpSize_ = 0;
  std::int32_t extendedCode_ = 0;
  std::int32_t version_ = 0;
  std::int32_t flags_ = 0;
  std::vector<EDNSOption> options_;
};

}  // namespace netro
