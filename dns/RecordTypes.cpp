// The names of DNS record types.

#include <netro/RecordText.h>

#include <algorithm>
#include <charconv>

#include "support/Text.h"

namespace netro {
namespace {

struct TypeName {
  std::string_view name;
  std::int32_t number;
};

// The first name of a number is the one that is printed.
constexpr TypeName kTypes[] = {
    {"A", 1},           {"NS", 2},          {"MD", 3},        {"MF", 4},        {"CNAME", 5},
    {"SOA", 6},         {"MB", 7},          {"MG", 8},        {"MR", 9},        {"NULL", 10},
    {"WKS", 11},        {"PTR", 12},        {"HINFO", 13},    {"MINFO", 14},    {"MX", 15},
    {"TXT", 16},        {"RP", 17},         {"AFSDB", 18},    {"X25", 19},      {"ISDN", 20},
    {"RT", 21},         {"NSAP", 22},       {"NSAP-PTR", 23}, {"NSAP_PTR", 23}, {"SIG", 24},
    {"KEY", 25},        {"PX", 26},         {"GPOS", 27},     {"AAAA", 28},     {"LOC", 29},
    {"NXT", 30},        {"EID", 31},        {"NIMLOC", 32},   {"SRV", 33},      {"ATMA", 34},
    {"NAPTR", 35},      {"KX", 36},         {"CERT", 37},     {"A6", 38},       {"DNAME", 39},
    {"SINK", 40},       {"OPT", 41},        {"APL", 42},      {"DS", 43},       {"SSHFP", 44},
    {"IPSECKEY", 45},   {"RRSIG", 46},      {"NSEC", 47},     {"DNSKEY", 48},   {"DHCID", 49},
    {"NSEC3", 50},      {"NSEC3PARAM", 51}, {"TLSA", 52},     {"SMIMEA", 53},   {"HIP", 55},
    {"NINFO", 56},      {"RKEY", 57},       {"TALINK", 58},   {"CDS", 59},      {"CDNSKEY", 60},
    {"OPENPGPKEY", 61}, {"CSYNC", 62},      {"ZONEMD", 63},   {"SVCB", 64},     {"HTTPS", 65},
    {"DSYNC", 66},      {"HHIT", 67},       {"BRID", 68},     {"SPF", 99},      {"UINFO", 100},
    {"UID", 101},       {"GID", 102},       {"UNSPEC", 103},  {"NID", 104},     {"L32", 105},
    {"L64", 106},       {"LP", 107},        {"EUI48", 108},   {"EUI64", 109},   {"TKEY", 249},
    {"TSIG", 250},      {"IXFR", 251},      {"AXFR", 252},    {"MAILB", 253},   {"MAILA", 254},
    {"ANY", 255},       {"ALL", 255},       {"URI", 256},     {"CAA", 257},     {"AVC", 258},
    {"DOA", 259},       {"AMTRELAY", 260},  {"RESINFO", 261}, {"WALLET", 262},  {"TA", 32768},
    {"DLV", 32769},
};

constexpr std::string_view kNumbered = "TYPE";
constexpr std::int32_t kLargest = 65535;

}  // namespace

std::string RecordTypeText(std::int32_t number) {
  const auto* type = std::ranges::find(kTypes, number, &TypeName::number);
  return std::string(type != std::end(kTypes) ? type->name : kNumbered) +
         (type != std::end(kTypes) ? "" : std::to_string(number));
}

std::optional<std::int32_t> RecordTypeNumber(std::string_view name) {
  for (const TypeName& type : kTypes) {
    if (EqualsIgnoreCase(name, type.name)) return type.number;
  }
  if (StartsWithIgnoreCase(name, kNumbered)) name.remove_prefix(kNumbered.size());
  std::int32_t number = 0;
  const char* end = name.data() + name.size();
  const auto read = std::from_chars(name.data(), end, number);
  const bool good = read.ec == std::errc() && read.ptr == end && number >= 1 && number <= kLargest;
  return good ? std::optional(number) : std::nullopt;
}

}  // namespace netro
