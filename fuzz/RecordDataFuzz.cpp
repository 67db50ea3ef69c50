// Writes the data of a record as a zone file has it: the first two bytes are the type. It is
// printable, what does not fit the type is there byte by byte, and all else reads the same when it
// came in a message.
#include <netro/RecordText.h>

#include <array>

#include "dns/DnsRecord.h"
#include "dns/ZoneText.h"
#include "fuzz/Fuzz.h"
#include "support/ByteWriter.h"

namespace {

std::string TextOfMessage(std::int32_t type, std::string_view bytes) {
  netro::ByteWriter message;
  message.U8(0);  // the root
  message.U16(static_cast<std::uint16_t>(type));
  message.Append(std::array<std::uint8_t, 6>{0, 1});
  message.U16(static_cast<std::uint16_t>(bytes.size()));
  message.Text(bytes);
  netro::ByteReader reader(message.Data());
  netro::DNSCLS record;
  std::uint16_t classNumber = 0;
  const bool good =
      ReadRecord(message.Data(), reader, netro::NameForm::Escaped, record, classNumber);
  return good ? RecordDataText(record) : "";
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  FuzzBytes bytes(data, size);
  const int high = TakeByte(bytes);
  const std::int32_t type = high * 256 + TakeByte(bytes);
  bytes = bytes.first(std::min<std::size_t>(bytes.size(), 65535));
  const std::string text = netro::RecordDataText(type, TextOf(bytes));
  const std::string read = TextOfMessage(type, TextOf(bytes));
  for (const char c : text + read) Require(c >= ' ' && c <= '~');
  Require(text.starts_with("\\#") ? text == netro::ZoneBytes(TextOf(bytes)) : text == read);
  return 0;
}
