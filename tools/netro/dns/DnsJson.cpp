// "netro dns --json". A zone may have a million records, so each is made and printed by itself.

#include <netro/RecordText.h>

#include <nlohmann/json.hpp>
#include <string>

#include "dns/DnsOutput.h"
#include "dns/DnsSections.h"
#include "dns/RecordJson.h"
#include "terminal/Encoding.h"
#include "terminal/Terminal.h"

namespace netro::tool {

using Json = nlohmann::ordered_json;

namespace {

Json FieldsOf(const DNSCLS& record) {
  const std::string name = RecordNameText(record.Data());
  switch (record.DataType()) {
    case TYPE_MX:
    case TYPE_RT:
      return {{"preference", static_cast<std::uint16_t>(record.Pref())}, {"host", name}};
    case TYPE_AFSDB:
      return {{"subtype", static_cast<std::uint16_t>(record.Pref())}};
    case TYPE_SRV:
      return {{"priority", static_cast<std::uint16_t>(record.SVR_Pref())},
              {"weight", record.SVR_Weight()},
              {"port", record.SVR_Port()},
              {"target", name}};
    case TYPE_SOA:
      return {{"primary", name},
              {"mailbox", RecordNameText(record.SOA_RName())},
              {"mail_address", record.SOA_Mailbox()},
              {"serial", static_cast<std::uint32_t>(record.SOA_Serial())},
              {"refresh", static_cast<std::uint32_t>(record.SOA_Refresh())},
              {"retry", static_cast<std::uint32_t>(record.SOA_Retry())},
              {"expire", static_cast<std::uint32_t>(record.SOA_Expire())},
              {"minimum", static_cast<std::uint32_t>(record.SOA_Minimum())}};
    case TYPE_LOC:
      return {{"latitude", record.LOC_LATITUDE_COORD()},
              {"longitude", record.LOC_LONGITUDE_COORD()},
              {"altitude", static_cast<std::uint32_t>(record.LOC_ALTITUDE())},
              {"size", record.LOC_SIZE()},
              {"horizontal_precision", record.LOC_HORIZ_PRE()},
              {"vertical_precision", record.LOC_VERT_PRE()}};
    default:
      return nullptr;
  }
}

}  // namespace

Json ToJson(const DNSCLS& record) {
  Json object = {{"name", RecordNameText(record.Query())},
                 {"ttl", TimeToLive(record)},
                 {"class", "IN"},
                 {"type", RecordTypeText(record.DataType())},
                 {"type_number", record.DataType()},
                 {"data", RecordDataText(record)}};
  if (Json fields = FieldsOf(record); !fields.is_null()) object["fields"] = std::move(fields);
  return object;
}

namespace {

Json EdnsOf(const EDNSCLS& edns) {
  Json options = Json::array();
  for (const EDNSOption& option : edns.Options()) {
    options.push_back({{"code", option.Code}, {"data", HexDigits(option.Data)}});
  }
  return {{"version", edns.Version()},
          {"flags", edns.Flags()},
          {"udp_size", edns.UDPSize()},
          {"options", std::move(options)}};
}

/// Everything but the records.
Json Frame(const DnsLookup& lookup) {
  const auto& [request, query, result] = lookup;
  Json object = {
      {"question",
       {{"name", QuestionName(query)}, {"class", "IN"}, {"type", RecordTypeText(request.type)}}},
      {"server", result.server},
      {"silent_servers", result.silentServers},
      {"transport", result.overTcp ? "TCP" : "UDP"},
      {"truncated_over_udp", result.wasTruncated},
      {"ok", result.errorNumber == 0},
      {"status", nullptr},
      {"flags", Json::array()},
      {"error", {{"number", result.errorNumber}, {"text", result.errorText}}},
      {"edns", nullptr},
      {"seconds", result.seconds},
      {"sent_bytes", query.OutBuffer().size()},
      {"received_bytes", query.InBuffer().size()},
  };
  if (const EDNSCLS* edns = query.EDNS()) object["edns"] = EdnsOf(*edns);
  if (result.header) {
    object["status"] = result.header->status;
    object["flags"] = result.header->flags;
  }
  return object;
}

}  // namespace

void PrintDnsJson(const DnsLookup& lookup) {
  const auto dump = [](const Json& object, int indent) {
    return object.dump(indent, ' ', true, Json::error_handler_t::replace);
  };
  const std::string frame = dump(Frame(lookup), 2);
  Print(frame.substr(0, frame.rfind("\n}")));
  for (const DnsSection& section : kDnsSections) {
    Print(",\n  \"" + std::string(section.key) + "\": [");
    const char* separator = "\n    ";
    ForEachRecord(lookup.query, section, [&](const DNSCLS& record) {
      Print(separator + dump(ToJson(record), -1));
      separator = ",\n    ";
    });
    Print("]");
  }
  Print("\n}");
}

}  // namespace netro::tool
