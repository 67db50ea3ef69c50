// Decoding by type. Each decoder reads the record's data through a reader that ends where the data
// ends; what it leaves is skipped.
#include "dns/DnsRecord.h"

#include <array>
#include <charconv>
#include <string>

#include "dns/DnsLocation.h"
#include "dns/DnsName.h"
#include "platform/Sockets.h"

namespace netro {
namespace {

struct RecordData {
  std::span<const std::uint8_t> message;
  ByteReader reader;  // its position is an offset into the message, its end that of the data
  NameForm form;

  std::span<const std::uint8_t> Rest() { return reader.Take(reader.Remaining()); }
  std::string Name() {
    std::string name;
    if (!ReadName(message, reader, name, form)) ok = false;
    return name;
  }
  bool Ok() const { return ok && reader.Ok(); }

  bool ok = true;
};

using Decoder = void (*)(RecordData& data, DNSCLS& record);

constexpr char kUpperDigits[] = "0123456789ABCDEF";
constexpr char kLowerDigits[] = "0123456789abcdef";

std::string Hex(std::span<const std::uint8_t> bytes, bool blanks) {
  std::string text;
  text.reserve(bytes.size() * 3);
  for (const std::uint8_t byte : bytes) {
    if (blanks && !text.empty()) text += ' ';
    text += kUpperDigits[byte >> 4];
    text += kUpperDigits[byte & 15];
  }
  return text;
}

std::string Address(RecordData& data) {
  std::array<char, sizeof "255.255.255.255"> text;
  char* end = text.data();
  for (int octet = 0; octet < 4; ++octet) {
    if (octet > 0) *end++ = '.';
    end = std::to_chars(end, text.data() + text.size(), data.reader.U8()).ptr;
  }
  return {text.data(), end};
}

std::string CharacterString(RecordData& data) {
  const auto bytes = data.reader.Take(data.reader.U8());
  return {bytes.begin(), bytes.end()};
}

std::string Quoted(const std::string& text) {
  std::string quoted = "\"";
  for (const char c : text) {
    if (c == '"' || c == '\\') quoted += '\\';
    quoted += c;
  }
  return quoted + '"';
}

void Dump(RecordData& data, DNSCLS& record) { record.Data(Hex(data.Rest(), true)); }

void DecodeA(RecordData& data, DNSCLS& record) { record.Data(Address(data)); }

void DecodeName(RecordData& data, DNSCLS& record) { record.Data(data.Name()); }

void DecodeTwoNames(RecordData& data, DNSCLS& record) {
  std::string first = data.Name();
  record.Data(std::move(first) + " " + data.Name());
}

void DecodePreference(RecordData& data, DNSCLS& record) {
  record.Pref(static_cast<std::int16_t>(data.reader.U16()));
  record.Data(data.Name());
}

void DecodeSoa(RecordData& data, DNSCLS& record) {
  const auto number = [&] { return static_cast<std::int32_t>(data.reader.U32()); };
  record.Data(data.Name());
  RecordData again = data;
  record.SOA_RName(data.Name());
  again.form = NameForm::Escaped;
  record.SOA_Mailbox(MailboxOf(again.Name()));
  record.SOA_Serial(data.reader.U32());
  record.SOA_Refresh(number());
  record.SOA_Retry(number());
  record.SOA_Expire(number());
  record.SOA_Minimum(number());
}

void DecodeWks(RecordData& data, DNSCLS& record) {
  std::string text = Address(data);
  text += " " + std::to_string(data.reader.U8());
  for (const std::uint8_t byte : data.Rest()) {
    text += ' ';
    for (int bit = 7; bit >= 0; --bit) text += (byte >> bit & 1) != 0 ? '1' : '0';
  }
  record.Data(std::move(text));
}

void DecodeStrings(RecordData& data, DNSCLS& record) {
  std::string first = CharacterString(data);
  std::int32_t count = 1;
  record.StringCount(count);
  if (data.reader.Remaining() == 0) return record.Data(std::move(first));
  std::string text = Quoted(first);
  for (; data.reader.Remaining() > 0; ++count) text += " " + Quoted(CharacterString(data));
  record.StringCount(count);
  record.Data(std::move(text));
}

void DecodeTxt(RecordData& data, DNSCLS& record) {
  if (data.reader.Remaining() > 0) DecodeStrings(data, record);
}

void DecodeHinfo(RecordData& data, DNSCLS& record) {
  std::string machine = Quoted(CharacterString(data));
  record.Data(std::move(machine) + " " + Quoted(CharacterString(data)));
}

void DecodeAfsdb(RecordData& data, DNSCLS& record) {
  const std::uint16_t subtype = data.reader.U16();
  record.Pref(static_cast<std::int16_t>(subtype));
  record.Data((subtype == 1 ? "[AFS] " : subtype == 2 ? "[DCE] " : "") + data.Name());
}

void DecodeAaaa(RecordData& data, DNSCLS& record) {
  std::string text;
  for (int group = 0; group < 8; ++group) {
    if (group > 0) text += ':';
    const std::uint16_t value = data.reader.U16();
    for (int shift = 12; shift >= 0; shift -= 4) text += kLowerDigits[value >> shift & 15];
  }
  record.Data(std::move(text));
}

void DecodeSrv(RecordData& data, DNSCLS& record) {
  record.SVR_Pref(static_cast<std::int16_t>(data.reader.U16()));
  record.SVR_Weight(data.reader.U16());
  record.SVR_Port(data.reader.U16());
  record.Data(data.Name());
}

void DecodeLocation(RecordData& data, DNSCLS& record) {
  const RecordData whole = data;
  if (ReadLocation(data.reader, record)) return;
  data = whole;
  Dump(data, record);
}

void DecodeAtma(RecordData& data, DNSCLS& record) {
  const std::uint8_t format = data.reader.U8();
  const auto address = data.Rest();
  if (format == 0) return record.Data("(NSAP) " + Hex(address, false));
  if (format == 1) return record.Data("(E164) " + std::string(address.begin(), address.end()));
  record.Data("UNKNOWN ATMA");
}

struct TypeDecoder {
  std::int32_t type;
  Decoder decode;
};

// Types that are not here are dumped.
constexpr TypeDecoder kDecoders[] = {
    {TYPE_A, DecodeA},         {TYPE_NS, DecodeName},        {TYPE_CNAME, DecodeName},
    {TYPE_SOA, DecodeSoa},     {TYPE_MB, DecodeName},        {TYPE_MG, DecodeName},
    {TYPE_MR, DecodeName},     {TYPE_WKS, DecodeWks},        {TYPE_PTR, DecodeName},
    {TYPE_HINFO, DecodeHinfo}, {TYPE_MINFO, DecodeTwoNames}, {TYPE_MX, DecodePreference},
    {TYPE_TXT, DecodeTxt},     {TYPE_RP, DecodeTwoNames},    {TYPE_AFSDB, DecodeAfsdb},
    {TYPE_X25, DecodeStrings}, {TYPE_ISDN, DecodeStrings},   {TYPE_RT, DecodePreference},
    {TYPE_AAAA, DecodeAaaa},   {TYPE_LOC, DecodeLocation},   {TYPE_SRV, DecodeSrv},
    {TYPE_ATMA, DecodeAtma},
};

constexpr auto kDecoderByType = [] {
  std::array<Decoder, TYPE_ATMA + 1> table;
  table.fill(Dump);
  for (const TypeDecoder& entry : kDecoders)
    table[static_cast<std::size_t>(entry.type)] = entry.decode;
  return table;
}();

Decoder DecoderOf(std::int32_t type) {
  const auto index = static_cast<std::size_t>(type);
  return index < kDecoderByType.size() ? kDecoderByType[index] : Dump;
}

}  // namespace

bool ReadRecord(std::span<const std::uint8_t> message, ByteReader& reader, NameForm form,
                DNSCLS& record, std::uint16_t& classNumber) {
  std::string owner;
  if (!ReadName(message, reader, owner, form)) return false;
  record.Query(std::move(owner));
  record.DataType(reader.U16());
  classNumber = reader.U16();
  record.TTL(reader.U32());
  const std::uint16_t size = reader.U16();
  const std::size_t start = reader.Position();
  reader.Skip(size);
  if (!reader.Ok()) return false;

  RecordData data{message, ByteReader(message.first(start + size)), form};
  data.reader.Skip(start);
  DecoderOf(record.DataType())(data, record);
  return data.Ok();
}

}  // namespace netro
