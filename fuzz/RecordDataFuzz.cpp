// Writes the data of a record as a zone file has it: the first two bytes are the type. It is
// printable, and what does not fit the type is there byte by byte.
#include "dns/RecordData.h"
#include "dns/ZoneText.h"
#include "fuzz/Fuzz.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  FuzzBytes bytes(data, size);
  const int high = TakeByte(bytes);
  const std::int32_t type = high * 256 + TakeByte(bytes);
  const std::string text = netro::tool::RecordData(type, TextOf(bytes));
  for (const char c : text) Require(c >= ' ' && c <= '~');
  if (text.starts_with("\\#")) Require(text == netro::tool::ZoneBytes(TextOf(bytes)));
  return 0;
}
