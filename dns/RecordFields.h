// The fields that the data of DNS records is made of. Each reads its bytes and gives one word of a
// zone file's line, or several, or none; bytes that do not fit fail the reader. Thread: any.
#pragma once

#include <string>

#include "dns/RecordReader.h"

namespace netro {

/// Adds a word to a line; an empty word is left out.
void AddWord(std::string& line, const std::string& word);

namespace field {

// Numbers, addresses, names.
std::string U8(RecordReader& data);
std::string U16(RecordReader& data);
std::string U32(RecordReader& data);
std::string IPv4(RecordReader& data);
std::string IPv6(RecordReader& data);
std::string Name(RecordReader& data);
/// Seconds since 1970 as YYYYMMDDHHMMSS (RFC 4034, section 3.2).
std::string Time(RecordReader& data);
/// "14:4fff:ff20:ee64" (RFC 6742)
std::string Locator64(RecordReader& data);
/// "01-23-45-67-89-ab" (RFC 7043)
std::string Eui48(RecordReader& data);
std::string Eui64(RecordReader& data);
/// "0x47..." (RFC 1706), all that is left.
std::string NsapAddress(RecordReader& data);
/// The numbers of the bits that are set (RFC 1035, section 3.4.2), all that is left.
std::string Ports(RecordReader& data);
/// LOC (RFC 1876), all of it.
std::string Location(RecordReader& data);
/// "+61200000000", or hexadecimal digits in lower case, all that is left.
std::string AtmAddress(RecordReader& data);

// Strings with their length in front: one; one and all that follow; the tag of a CAA record, which
// stands without quotes (RFC 8659, section 4.1).
std::string String(RecordReader& data);
std::string Strings(RecordReader& data);
std::string Tag(RecordReader& data);

// All that is left. RestAsHex and RestAsBase64 need at least one byte; without any a key is left
// out (RFC 2535, section 3.1.2), and Content is "-".
std::string RestAsString(RecordReader& data);
std::string RestAsHex(RecordReader& data);
std::string RestAsBase64(RecordReader& data);
std::string Key(RecordReader& data);
std::string Content(RecordReader& data);

// Record types: one by its number; windows of 256 bits (RFC 4034, section 4.1.2); bits up to 127
// (RFC 2535, section 5.2).
std::string Type(RecordReader& data);
std::string Types(RecordReader& data);
std::string OldTypes(RecordReader& data);

/// The salt and the hash of NSEC3 (RFC 5155, section 3.3).
std::string Salt(RecordReader& data);
std::string HashedName(RecordReader& data);

// Numbers with names.
std::string CertificateType(RecordReader& data);
std::string Algorithm(RecordReader& data);
std::string SyncScheme(RecordReader& data);

// Whole records whose fields depend on each other.
/// IPSECKEY: precedence, gateway type, algorithm, gateway, key (RFC 4025).
std::string IpsecKey(RecordReader& data);
/// AMTRELAY: precedence, one bit "discovery optional" and the type, relay (RFC 8777).
std::string MulticastRelay(RecordReader& data);
/// HIP: lengths of tag and key, algorithm, tag, key, servers (RFC 8005).
std::string HostIdentity(RecordReader& data);
/// APL: address family, prefix, a negation and the length of the address (RFC 3123).
std::string Prefixes(RecordReader& data);
/// A6: length of a prefix, the rest of the address, the name that has the prefix (RFC 2874).
std::string AddressChain(RecordReader& data);
/// SVCB and HTTPS, all parameters that are left: `alpn="h2,h3" port=8443` (RFC 9460).
std::string ServiceParameters(RecordReader& data);

}  // namespace field
}  // namespace netro
