// DNSCLS: one DNS resource record (RFC 1035, section 3.2), as read from a reply.
//
// A plain value. Names are dotted, without a dot at the end; the root is empty. What a label holds
// stands as it is, so texts may hold any byte; show them escaped, or ask with EscapeNames (see
// QueryDNSCLS) for names that are.
//
// Data by type:
//
//   A            dotted address
//   AAAA         eight groups of four hexadecimal digits, "2001:0db8:0000:..."
//   NS, CNAME, PTR, MB, MG, MR   the name
//   MX, RT       the name; the preference is in Pref
//   SRV          the target; SVR_Pref, SVR_Weight and SVR_Port hold the numbers
//   SOA          the primary server; the SOA_ properties hold the rest
//   MINFO, RP    both names with a blank between
//   TXT, X25, ISDN   the string as it is; several strings each in double quotes, with a blank
//                between, in them \" for " and \\ for backslash; StringCount tells which
//   HINFO        both strings in this quoted form
//   AFSDB        the host, after "[AFS] " for subtype 1 and "[DCE] " for 2; subtype in Pref
//   WKS          address, protocol number, the bit map in groups of eight digits
//   LOC          as in a zone file (RFC 1876): "52 22 23.000 N 4 53 32.000 E -2.00m 1m 10m 10m"
//   ATMA         "(NSAP) " and hexadecimal digits, "(E164) " and digits, or "UNKNOWN ATMA"
//   all others   the bytes as "0A FF 00 1B"; so are LOC records that cannot be
#pragma once

#include <netro/Export.h>

#include <cstdint>
#include <memory>
#include <string>
#include <utility>

namespace netro {

/// Record types, by their numbers on the wire. Types that are not named here are asked for with
/// static_cast<QueryEnum>(number).
enum QueryEnum : std::int32_t {
  TYPE_A = 1,
  TYPE_NS = 2,
  TYPE_MD = 3,
  TYPE_MF = 4,
  TYPE_CNAME = 5,
  TYPE_SOA = 6,
  TYPE_MB = 7,
  TYPE_MG = 8,
  TYPE_MR = 9,
  TYPE_NULL = 10,
  TYPE_WKS = 11,
  TYPE_PTR = 12,
  TYPE_HINFO = 13,
  TYPE_MINFO = 14,
  TYPE_MX = 15,
  TYPE_TXT = 16,
  TYPE_RP = 17,
  TYPE_AFSDB = 18,
  TYPE_X25 = 19,
  TYPE_ISDN = 20,
  TYPE_RT = 21,
  TYPE_NSAP = 22,
  TYPE_NSAP_PTR = 23,
  TYPE_SIG = 24,
  TYPE_KEY = 25,
  TYPE_PX = 26,
  TYPE_GPOS = 27,
  TYPE_AAAA = 28,
  TYPE_LOC = 29,
  TYPE_NXT = 30,
  TYPE_EID = 31,
  TYPE_NIMLOC = 32,
  TYPE_SRV = 33,
  TYPE_ATMA = 34,
  TYPE_IXFR = 251,
  TYPE_AXFR = 252,
  TYPE_MAILB = 253,
  TYPE_MAILA = 254,
  TYPE_ALL = 255,
};

class NETRO_EXPORT DNSCLS {
 public:
  /// The owner name.
  const std::string& Query() const { return query_; }
  void Query(std::string value) { query_ = std::move(value); }
  /// The type's number, see QueryEnum.
  std::int32_t DataType() const { return dataType_; }
  void DataType(std::int32_t value) { dataType_ = value; }
  /// The data of the record as one text; what it holds of which type, docs/dns.md tells.
  const std::string& Data() const { return data_; }
  void Data(std::string value) { data_ = std::move(value); }
  /// Seconds, 0 to 4,294,967,295.
  double TTL() const { return ttl_; }
  void TTL(double value) { ttl_ = value; }
  /// The number of strings in Data of TXT, X25 and ISDN.
  std::int32_t StringCount() const { return stringCount_; }
  void StringCount(std::int32_t value) { stringCount_ = value; }
  /// Preference of MX and RT, whose 16 bits are held signed; subtype of AFSDB.
  std::int16_t Pref() const { return pref_; }
  void Pref(std::int16_t value) { pref_ = value; }

  /// Priority (16 bits held signed), weight and port of SRV (RFC 2782).
  std::int16_t SVR_Pref() const { return svrPref_; }
  void SVR_Pref(std::int16_t value) { svrPref_ = value; }
  std::int32_t SVR_Weight() const { return svrWeight_; }
  void SVR_Weight(std::int32_t value) { svrWeight_ = value; }
  std::int32_t SVR_Port() const { return svrPort_; }
  void SVR_Port(std::int32_t value) { svrPort_ = value; }

  /// The responsible mailbox, as a name, and as an address in which the dots of its first label are
  /// kept: "john.doe@example"; empty when that name is no plain address. The serial, 0 to
  /// 4,294,967,295; and seconds.
  const std::string& SOA_RName() const { return rare_.Get().soaRName; }
  void SOA_RName(std::string value) { rare_.Own().soaRName = std::move(value); }
  const std::string& SOA_Mailbox() const { return rare_.Get().soaMailbox; }
  void SOA_Mailbox(std::string value) { rare_.Own().soaMailbox = std::move(value); }
  double SOA_Serial() const { return rare_.Get().soaSerial; }
  void SOA_Serial(double value) { rare_.Own().soaSerial = value; }
  std::int32_t SOA_Refresh() const { return rare_.Get().soaRefresh; }
  void SOA_Refresh(std::int32_t value) { rare_.Own().soaRefresh = value; }
  std::int32_t SOA_Retry() const { return rare_.Get().soaRetry; }
  void SOA_Retry(std::int32_t value) { rare_.Own().soaRetry = value; }
  std::int32_t SOA_Expire() const { return rare_.Get().soaExpire; }
  void SOA_Expire(std::int32_t value) { rare_.Own().soaExpire = value; }
  std::int32_t SOA_Minimum() const { return rare_.Get().soaMinimum; }
  void SOA_Minimum(std::int32_t value) { rare_.Own().soaMinimum = value; }

  /// A location (RFC 1876). Size and precisions are the bytes of the record (mantissa and exponent
  /// of centimetres); latitude and longitude are its 32-bit numbers, thousandths of an arc second
  /// with 2,147,483,648 for the equator and the prime meridian; altitude is its 32-bit number,
  /// centimetres above -100,000 m. The _COORD texts are degrees, minutes, seconds and direction:
  /// "52 22 23.000 N".
  std::int32_t LOC_SIZE() const { return rare_.Get().locSize; }
  void LOC_SIZE(std::int32_t value) { rare_.Own().locSize = value; }
  std::int32_t LOC_HORIZ_PRE() const { return rare_.Get().locHorizontal; }
  void LOC_HORIZ_PRE(std::int32_t value) { rare_.Own().locHorizontal = value; }
  std::int32_t LOC_VERT_PRE() const { return rare_.Get().locVertical; }
  void LOC_VERT_PRE(std::int32_t value) { rare_.Own().locVertical = value; }
  double LOC_LATITUDE() const { return rare_.Get().locLatitude; }
  void LOC_LATITUDE(double value) { rare_.Own().locLatitude = value; }
  const std::string& LOC_LATITUDE_COORD() const { return rare_.Get().locLatitudeText; }
  void LOC_LATITUDE_COORD(std::string value) { rare_.Own().locLatitudeText = std::move(value); }
  double LOC_LONGITUDE() const { return rare_.Get().locLongitude; }
  void LOC_LONGITUDE(double value) { rare_.Own().locLongitude = value; }
  const std::string& LOC_LONGITUDE_COORD() const { return rare_.Get().locLongitudeText; }
  void LOC_LONGITUDE_COORD(std::string value) { rare_.Own().locLongitudeText = std::move(value); }
  std::int32_t LOC_ALTITUDE() const { return rare_.Get().locAltitude; }
  void LOC_ALTITUDE(std::int32_t value) { rare_.Own().locAltitude = value; }

 private:
  // What only SOA and LOC records hold. A zone has one or two of them among a million others.
  struct Rare {
    std::string soaRName;
    std::string soaMailbox;
    double soaSerial = 0;
    std::int32_t soaRefresh = 0;
    std::int32_t soaRetry = 0;
    std::int32_t soaExpire = 0;
    std::int32_t soaMinimum = 0;
    std::int32_t locSize = 0;
    std::int32_t locHorizontal = 0;
    std::int32_t locVertical = 0;
    std::int32_t locAltitude = 0;
    double locLatitude = 0;
    double locLongitude = 0;
    std::string locLatitudeText;
    std::string locLongitudeText;
  };

  // Copied with its owner.
  class RarePointer {
   public:
    RarePointer() = default;
    RarePointer(const RarePointer& other)
        : rare_(other.rare_ ? std::make_unique<Rare>(*other.rare_) : nullptr) {}
    RarePointer(RarePointer&&) noexcept = default;
    RarePointer& operator=(RarePointer other) noexcept {
      rare_.swap(other.rare_);
      return *this;
    }
    ~RarePointer() = default;

    const Rare& Get() const {
      static const Rare kNone;
      return rare_ ? *rare_ : kNone;
    }
    Rare& Own() {
      if (!rare_) rare_ = std::make_unique<Rare>();
      return *rare_;
    }

   private:
    std::unique_ptr<Rare> rare_;
  };

  std::string query_;
  std::string data_;
  double ttl_ = 0;
  std::int32_t dataType_ = 0;
  std::int32_t stringCount_ = 0;
  std::int32_t svrWeight_ = 0;
  std::int32_t svrPort_ = 0;
  std::int16_t pref_ = 0;
  std::int16_t svrPref_ = 0;
  RarePointer rare_;
};

}  // namespace netro
