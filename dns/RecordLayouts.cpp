// The table of record types and the fields that their data is made of.

#include <netro/RecordText.h>

#include <algorithm>
#include <iterator>

#include "dns/RecordFields.h"
#include "dns/ZoneText.h"

namespace netro {
namespace {

using namespace field;

using Field = std::string (*)(RecordReader& data);

struct Layout {
  std::string_view type;
  Field fields[9];  // up to the first that is null
};

constexpr Layout kLayouts[] = {
    {"A", {IPv4}},
    {"A6", {AddressChain}},
    {"AAAA", {IPv6}},
    {"AFSDB", {U16, Name}},
    {"AMTRELAY", {MulticastRelay}},
    {"APL", {Prefixes}},
    {"ATMA", {AtmAddress}},
    {"AVC", {Strings}},
    {"BRID", {RestAsBase64}},
    {"CAA", {U8, Tag, RestAsString}},
    {"CDNSKEY", {U16, U8, U8, Key}},
    {"CDS", {U16, U8, U8, RestAsHex}},
    {"CERT", {CertificateType, U16, Algorithm, RestAsBase64}},
    {"CNAME", {Name}},
    {"CSYNC", {U32, U16, Types}},
    {"DHCID", {RestAsBase64}},
    {"DLV", {U16, U8, U8, RestAsHex}},
    {"DNAME", {Name}},
    {"DNSKEY", {U16, U8, U8, Key}},
    {"DOA", {U32, U32, U8, String, Content}},
    {"DS", {U16, U8, U8, RestAsHex}},
    {"DSYNC", {Type, SyncScheme, U16, Name}},
    {"EID", {RestAsHex}},
    {"EUI48", {Eui48}},
    {"EUI64", {Eui64}},
    {"GPOS", {String, String, String}},
    {"HHIT", {RestAsBase64}},
    {"HINFO", {String, String}},
    {"HIP", {HostIdentity}},
    {"HTTPS", {U16, Name, ServiceParameters}},
    {"IPSECKEY", {IpsecKey}},
    {"ISDN", {Strings}},
    {"KEY", {U16, U8, U8, Key}},
    {"KX", {U16, Name}},
    {"L32", {U16, IPv4}},
    {"L64", {U16, Locator64}},
    {"LOC", {Location}},
    {"LP", {U16, Name}},
    {"MB", {Name}},
    {"MD", {Name}},
    {"MF", {Name}},
    {"MG", {Name}},
    {"MINFO", {Name, Name}},
    {"MR", {Name}},
    {"MX", {U16, Name}},
    {"NAPTR", {U16, U16, String, String, String, Name}},
    {"NID", {U16, Locator64}},
    {"NIMLOC", {RestAsHex}},
    {"NINFO", {Strings}},
    {"NS", {Name}},
    {"NSAP", {NsapAddress}},
    {"NSAP-PTR", {Name}},
    {"NSEC", {Name, Types}},
    {"NSEC3", {U8, U8, U16, Salt, HashedName, Types}},
    {"NSEC3PARAM", {U8, U8, U16, Salt}},
    {"NXT", {Name, OldTypes}},
    {"OPENPGPKEY", {RestAsBase64}},
    {"PTR", {Name}},
    {"PX", {U16, Name, Name}},
    {"RESINFO", {Strings}},
    {"RKEY", {U16, U8, U8, Key}},
    {"RP", {Name, Name}},
    {"RRSIG", {Type, U8, U8, U32, Time, Time, U16, Name, RestAsBase64}},
    {"RT", {U16, Name}},
    {"SIG", {Type, U8, U8, U32, Time, Time, U16, Name, RestAsBase64}},
    {"SINK", {U8, U8, U8, Key}},
    {"SMIMEA", {U8, U8, U8, RestAsHex}},
    {"SOA", {Name, Name, U32, U32, U32, U32, U32}},
    {"SPF", {Strings}},
    {"SRV", {U16, U16, U16, Name}},
    {"SSHFP", {U8, U8, RestAsHex}},
    {"SVCB", {U16, Name, ServiceParameters}},
    {"TA", {U16, U8, U8, RestAsHex}},
    {"TALINK", {Name, Name}},
    {"TLSA", {U8, U8, U8, RestAsHex}},
    {"TXT", {Strings}},
    {"URI", {U16, U16, RestAsString}},
    {"WALLET", {Strings}},
    {"WKS", {IPv4, U8, Ports}},
    {"X25", {Strings}},
    {"ZONEMD", {U32, U8, U8, RestAsHex}},
};

}  // namespace

std::string RecordDataText(std::int32_t type, std::string_view bytes) {
  const auto* layout = std::ranges::find(kLayouts, RecordTypeText(type), &Layout::type);
  if (layout == std::end(kLayouts)) return ZoneBytes(bytes);
  RecordReader data(bytes);
  std::string text;
  for (const Field field : layout->fields) {
    if (field != nullptr) AddWord(text, field(data));
  }
  return data.Ok() && data.Remaining() == 0 ? text : ZoneBytes(bytes);
}

}  // namespace netro
