// DNS records as text: as a zone file writes them (RFC 1035, section 5.1).
//
// All texts are printable ASCII whatever a record holds, so they may be shown, logged and written
// to a file. Nothing here fails: data of a type that is not known, or that does not fit its type,
// stands in the form for any type, `\# 4 0A000001` (RFC 3597, section 5). Thread: any.
//
// Names are taken as QueryDNSCLS gives them with EscapeNames. Without that a dot or a backslash
// inside of a label counts as one between two labels or before an escape, and so a name may come
// out as another one.
#pragma once

#include <netro/DNSCLS.h>
#include <netro/Export.h>
#include <netro/QueryDNSCLS.h>

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace netro {

/// The name of a record type, 0 to 65,535: "MX"; "TYPE65280" for a number without a name.
NETRO_EXPORT std::string RecordTypeText(std::int32_t Type);

/// The number of "MX", "mx", "TYPE15" or "15", 1 to 65,535; nothing for all else. "ANY" and "ALL"
/// are TYPE_ALL.
NETRO_EXPORT std::optional<std::int32_t> RecordTypeNumber(std::string_view Text);

/// A name with a dot at its end and with the escapes that it needs; the root, which is empty or
/// ".", is ".". What is no name keeps its characters but for those that are not printable.
NETRO_EXPORT std::string RecordNameText(std::string_view Name);

/// The data of a record: "10 mail.example.com." for MX. A name server that reads the text sends the
/// bytes that came, but for what a DNSCLS does not hold: bytes behind those that the type needs,
/// and an ATMA of unknown format.
NETRO_EXPORT std::string RecordDataText(const DNSCLS& Record);

/// The same for the bytes of a record's data (RDATA) of this type, without compressed names.
NETRO_EXPORT std::string RecordDataText(std::int32_t Type, std::string_view Bytes);

/// The whole line without a line end, "www.example.com. 3600 IN A 192.0.2.1": owner, time to live,
/// class, type, data, with a blank between. The class is IN, since a DNSCLS holds none.
NETRO_EXPORT std::string RecordLineText(const DNSCLS& Record);

/// The answers of a query, a line each, with a line feed behind each one. Of a zone transfer that
/// is the zone's file; the SOA record that ended the transfer is left out. It takes about as much
/// memory as the answers themselves; for millions of records write RecordLineText of each.
NETRO_EXPORT std::string ZoneFileText(const QueryDNSCLS& Query);

}  // namespace netro
