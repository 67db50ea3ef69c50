// From the properties of a DNSCLS to the data of a zone file's line.

#include <netro/RecordText.h>

#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "dns/DnsName.h"
#include "dns/RecordReader.h"
#include "dns/ZoneText.h"
#include "platform/Address.h"
#include "support/Text.h"

namespace netro {
namespace {

std::string Unsigned(std::int16_t number) {
  return std::to_string(static_cast<std::uint16_t>(number));
}

std::string Unsigned(std::int32_t number) {
  return std::to_string(static_cast<std::uint32_t>(number));
}

std::string Unsigned(double number) { return std::to_string(std::llround(number)); }

/// Takes `"..."` off the front, in which \" and \\ stand for " and \.
std::optional<std::string> TakeQuoted(std::string_view& text) {
  std::string content;
  for (std::size_t i = 1; text.starts_with('"') && i < text.size(); ++i) {
    if (text[i] == '"') {
      text.remove_prefix(i + 1);
      return content;
    }
    i += text[i] == '\\' && i + 1 < text.size() ? 1 : 0;
    content += text[i];
  }
  return std::nullopt;
}

/// Quoted strings with blanks between.
std::string QuotedStrings(std::string_view data) {
  std::string text;
  while (const auto string = TakeQuoted(data)) {
    text += (text.empty() ? "" : " ") + ZoneString(*string);
    data.remove_prefix(std::min<std::size_t>(1, data.size()));
  }
  return text;
}

/// The strings of TXT and its kin, of which only several are quoted.
std::string StringsText(const DNSCLS& record) {
  if (record.StringCount() == 0) return ZoneBytes({});
  return record.StringCount() == 1 ? ZoneString(record.Data()) : QuotedStrings(record.Data());
}

std::string TwoNames(std::string_view data) {
  const std::size_t blank = std::min(data.find(' '), data.size());
  return RecordNameText(data.substr(0, blank)) + " " +
         RecordNameText(data.substr(std::min(blank + 1, data.size())));
}

std::string ShortIPv6(const std::string& data) {
  const auto address = ParseAddress(data);
  return address ? ZoneIPv6(*address) : data;
}

bool HasOnlyPrintable(std::string_view text) {
  return std::ranges::all_of(text, [](char c) { return c >= ' ' && c <= '~'; });
}

std::string StartOfAuthority(const DNSCLS& record) {
  return RecordNameText(record.Data()) + " " + RecordNameText(record.SOA_RName()) + " " +
         Unsigned(record.SOA_Serial()) + " " + Unsigned(record.SOA_Refresh()) + " " +
         Unsigned(record.SOA_Retry()) + " " + Unsigned(record.SOA_Expire()) + " " +
         Unsigned(record.SOA_Minimum());
}

std::string Service(const DNSCLS& record) {
  return Unsigned(record.SVR_Pref()) + " " + Unsigned(record.SVR_Weight()) + " " +
         Unsigned(record.SVR_Port()) + " " + RecordNameText(record.Data());
}

/// The host stands behind "[AFS] " for subtype 1 and "[DCE] " for 2.
std::string AfsHost(const DNSCLS& record) {
  std::string_view host = record.Data();
  if (record.Pref() == 1 || record.Pref() == 2) {
    host.remove_prefix(std::min<std::size_t>(6, host.size()));
  }
  return Unsigned(record.Pref()) + " " + RecordNameText(host);
}

/// Address, protocol, and the ports whose bits are set, for "192.0.2.1 6 00000000 ...".
std::string WellKnownServices(std::string_view data) {
  std::string text;
  std::size_t word = 0;
  std::size_t port = 0;
  for (const char c : data) {
    if (c == ' ') {
      text += ++word == 1 ? " " : "";
    } else if (word < 2) {
      text += c;
    } else if (++port; c == '1') {
      text += " " + std::to_string(port - 1);
    }
  }
  return text;
}

/// "+61200000000", or hexadecimal digits in lower case.
std::string AtmAddress(std::string_view data) {
  constexpr std::string_view kE164 = "(E164) ";
  constexpr std::string_view kNsap = "(NSAP) ";
  const std::string_view address = data.substr(std::min(kE164.size(), data.size()));
  const bool digits = address.find_first_not_of("0123456789ABCDEF") == address.npos;
  if (!digits || !(data.starts_with(kE164) || data.starts_with(kNsap))) return ZoneString(data);
  return (data.starts_with(kE164) ? "+" : "") + ToLower(address);
}

/// The bytes of a dump: "0A FF 00 1B".
std::optional<std::string> Undump(std::string_view dump) {
  std::string bytes;
  bytes.reserve(dump.size() / 3 + 1);
  for (std::size_t i = 0; i < dump.size(); i += 3) {
    std::uint8_t byte = 0;
    const char* digits = dump.data() + i;
    const bool whole = i + 2 == dump.size() || (i + 3 < dump.size() && digits[2] == ' ');
    if (!whole || std::from_chars(digits, digits + 2, byte, 16).ptr != digits + 2) {
      return std::nullopt;
    }
    bytes += static_cast<char>(byte);
  }
  return bytes;
}

std::string DumpedData(const DNSCLS& record) {
  const auto bytes = Undump(record.Data());
  return bytes ? RecordDataText(record.DataType(), *bytes) : ZoneString(record.Data());
}

std::string TextByType(const DNSCLS& record) {
  switch (record.DataType()) {
    case TYPE_A:
      return record.Data();
    case TYPE_AAAA:
      return ShortIPv6(record.Data());
    case TYPE_NS:
    case TYPE_CNAME:
    case TYPE_PTR:
    case TYPE_MB:
    case TYPE_MG:
    case TYPE_MR:
      return RecordNameText(record.Data());
    case TYPE_MX:
    case TYPE_RT:
      return Unsigned(record.Pref()) + " " + RecordNameText(record.Data());
    case TYPE_SRV:
      return Service(record);
    case TYPE_SOA:
      return StartOfAuthority(record);
    case TYPE_MINFO:
    case TYPE_RP:
      return TwoNames(record.Data());
    case TYPE_TXT:
    case TYPE_X25:
    case TYPE_ISDN:
      return StringsText(record);
    case TYPE_HINFO:
      return QuotedStrings(record.Data());
    case TYPE_AFSDB:
      return AfsHost(record);
    case TYPE_WKS:
      return WellKnownServices(record.Data());
    case TYPE_ATMA:
      return AtmAddress(record.Data());
    case TYPE_LOC:  // dumped when it is of another version
      return record.LOC_LATITUDE_COORD().empty() ? DumpedData(record) : record.Data();
    default:
      return DumpedData(record);
  }
}

}  // namespace

std::string RecordNameText(std::string_view name) {
  ByteWriter wire;
  if (!WriteName(name.empty() ? "." : name, wire, NameForm::Escaped)) {
    return ZoneWord(name) + (name.ends_with('.') ? "" : ".");
  }
  const Bytes& bytes = wire.Data();
  return RecordReader({reinterpret_cast<const char*>(bytes.data()), bytes.size()}).Name();
}

std::string RecordDataText(const DNSCLS& record) {
  const std::string text = TextByType(record);
  return HasOnlyPrintable(text) ? text : ZoneString(record.Data());
}

std::string RecordLineText(const DNSCLS& record) {
  return RecordNameText(record.Query()) + " " + Unsigned(record.TTL()) + " IN " +
         RecordTypeText(record.DataType()) + " " + RecordDataText(record);
}

std::string ZoneFileText(const QueryDNSCLS& query) {
  std::string text;
  std::int32_t count = query.CountAN();
  const bool closed = count > 1 && query.EntryAN(1)->DataType() == TYPE_SOA &&
                      query.EntryAN(count)->DataType() == TYPE_SOA;
  count -= closed ? 1 : 0;
  for (std::int32_t i = 1; i <= count; ++i) text += RecordLineText(*query.EntryAN(i)) + "\n";
  return text;
}

}  // namespace netro
