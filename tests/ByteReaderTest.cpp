// The bounds-checked reader and the writer.

#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <limits>

#include "support/ByteReader.h"
#include "support/ByteWriter.h"

namespace netro {
namespace {

const Bytes kBytes = {0x81, 0xFE, 0x02, 0x83, 0x04, 0x05, 0xFF, 'x', 'y'};

TEST(ByteReader, ReadsBigEndianInOrder) {
  ByteReader reader(kBytes);
  EXPECT_EQ(reader.U8(), 0x81);
  EXPECT_EQ(reader.U16(), 0xFE02);
  EXPECT_EQ(reader.U32(), 0x830405FFU);
  EXPECT_EQ(reader.Position(), 7U);
  EXPECT_EQ(reader.Remaining(), 2U);
  const auto rest = reader.Take(2);
  EXPECT_EQ(Bytes(rest.begin(), rest.end()), Bytes({'x', 'y'}));
  EXPECT_EQ(reader.Remaining(), 0U);
  EXPECT_TRUE(reader.Take(0).empty());
  reader.Skip(0);
  EXPECT_TRUE(reader.Ok());
}

TEST(ByteReader, EveryReadPastTheEndFailsForGood) {
  constexpr std::size_t kHuge = std::numeric_limits<std::size_t>::max();
  const struct {
    const char* name;
    std::size_t left;
    void (*read)(ByteReader&);
  } kCases[] = {
      {"U8", 0, [](ByteReader& r) { EXPECT_EQ(r.U8(), 0); }},
      {"U16", 1, [](ByteReader& r) { EXPECT_EQ(r.U16(), 0); }},
      {"U32", 3, [](ByteReader& r) { EXPECT_EQ(r.U32(), 0U); }},
      {"Take", 3, [](ByteReader& r) { EXPECT_TRUE(r.Take(4).empty()); }},
      {"Take huge", 3, [](ByteReader& r) { EXPECT_TRUE(r.Take(kHuge).empty()); }},
      {"Skip", 3, [](ByteReader& r) { r.Skip(4); }},
      {"Skip huge", 3, [](ByteReader& r) { r.Skip(kHuge); }},
  };
  for (const auto& [name, left, read] : kCases) {
    SCOPED_TRACE(name);
    // An exact copy, so that a checked build notices a read behind its end.
    const Bytes bytes(kBytes.begin(), kBytes.begin() + 4);
    ByteReader reader(bytes);
    reader.Skip(bytes.size() - left);
    ASSERT_TRUE(reader.Ok());
    read(reader);
    EXPECT_FALSE(reader.Ok());
    EXPECT_EQ(reader.Remaining(), 0U);
    EXPECT_EQ(reader.U8(), 0);
    EXPECT_EQ(reader.U16(), 0);
    EXPECT_EQ(reader.U32(), 0U);
    EXPECT_TRUE(reader.Take(1).empty());
    reader.Skip(0);
    EXPECT_FALSE(reader.Ok());
  }
}

TEST(ByteWriter, WritesBigEndianInOrder) {
  ByteWriter writer;
  writer.U8(0xFF);
  writer.U16(0x8002);
  writer.Append(Bytes{1, 0, 2});
  writer.Append({});
  writer.Text("a\xE4");
  const Bytes expected = {0xFF, 0x80, 0x02, 1, 0, 2, 'a', 0xE4};
  EXPECT_EQ(writer.Data(), expected);
  EXPECT_EQ(writer.Take(), expected);
  EXPECT_TRUE(writer.Data().empty());
}

}  // namespace
}  // namespace netro
