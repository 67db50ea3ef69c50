// NetBIOS node status messages: the request's bytes, the fields of a reply, and replies that are
// cut, lie or are something else. Also the text of a hardware address.

#include <gtest/gtest.h>

#include "diag/NodeStatus.h"
#include "support/HardwareAddress.h"
#include "tests/peers/NodeStatusReply.h"

namespace netro {
namespace {

using namespace std::string_literals;
using peers::AnyNode;
using peers::NetBios16;
using peers::NodeStatusReply;

Bytes BytesOf(const std::string& text) { return {text.begin(), text.end()}; }

bool Reads(const std::string& reply) {
  AdapterStatus status;
  status.nameCount = 99;
  const bool read = ReadNodeStatus(BytesOf(reply), status);
  EXPECT_EQ(status.nameCount == 99, !read) << "what fails leaves nothing behind";
  return read;
}

TEST(HardwareAddressText, HasTwoDigitsAByteAndTheDivider) {
  const HardwareAddress address = {0x00, 0xFF, 0x0F, 0xF0, 0x68, 0x16};
  EXPECT_EQ(FormatHardwareAddress(address, "-"), "00-FF-0F-F0-68-16");
  EXPECT_EQ(FormatHardwareAddress(address, ""), "00FF0FF06816");
  EXPECT_EQ(FormatHardwareAddress(address, ", "), "00, FF, 0F, F0, 68, 16");
}

TEST(NodeStatusRequest, AsksTheHostWhateverItsName) {
  for (const unsigned id : {0u, 0x1234u, 0xFFFFu})
    EXPECT_EQ(ComposeNodeStatusRequest(static_cast<std::uint16_t>(id)),
              BytesOf(NetBios16(id) + "\0\0\0\1\0\0\0\0\0\0"s + AnyNode() + "\0\x21\0\1"s));
}

TEST(NodeStatusReply, LargeNumbersKeepTheirBits) {
  NodeStatusReply reply;
  reply.statistics = std::string(46, '\xFF');
  AdapterStatus status;
  ASSERT_TRUE(ReadNodeStatus(BytesOf(reply.Bytes()), status));
  EXPECT_EQ(status.revMajor, 255);
  EXPECT_EQ(status.duration, -1);
  EXPECT_EQ(status.xmitSuccess, -1);
  EXPECT_EQ(status.maxSessPktSize, -1);
}

TEST(NodeStatusReply, CutAtEveryByteIsNone) {
  const std::string whole = NodeStatusReply().Bytes();
  for (std::size_t size = 0; size < whole.size(); ++size)
    EXPECT_FALSE(Reads(whole.substr(0, size))) << size;
  EXPECT_TRUE(Reads(whole + "more"));
  const std::string statistics = peers::CountingStatistics();
  for (std::size_t size = 0; size <= statistics.size(); ++size) {
    const NodeStatusReply cut{.statistics = statistics.substr(0, size)};
    EXPECT_EQ(Reads(cut.Bytes() + "behind the data"), size == statistics.size()) << size;
  }
}

TEST(NodeStatusReply, CountsThatLie) {
  const std::string kNone(1, '\0');
  const struct {
    const char* what;
    NodeStatusReply reply;
    bool good;
  } kCases[] = {
      {"no names", {.names = {}}, true},
      {"255 names", {.names = std::vector<std::string>(255, "A              ")}, true},
      {"a name more than there is", {.nameCount = "\x03"}, false},
      {"255 names and two there", {.nameCount = "\xFF"}, false},
      {"a name less: its bytes count as statistics", {.nameCount = "\x01"}, true},
      {"length of nothing", {.length = NetBios16(0)}, false},
      {"length of a byte less", {.length = NetBios16(1 + 36 + 45)}, false},
      {"length of a byte more", {.length = NetBios16(1 + 36 + 47)}, false},
      {"the greatest length", {.length = "\xFF\xFF"}, false},
      {"no answer", {.counts = "\0\0\0\0\0\0\0\0"s}, false},
      {"more answers than there are", {.counts = "\0\0\xFF\xFF\0\0\0\0"s}, true},
      {"a question that is not there", {.counts = "\0\1\0\1\0\0\0\0"s}, false},
      {"65535 questions", {.counts = "\xFF\xFF\0\1\0\0\0\0"s}, false},
      {"other sections are not read", {.counts = "\0\0\0\1\xFF\xFF\xFF\xFF"s}, true},
  };
  for (const auto& c : kCases) EXPECT_EQ(Reads(c.reply.Bytes()), c.good) << c.what;
}

TEST(NodeStatusReply, OtherShapes) {
  const std::string question = AnyNode() + "\0\x21\0\1"s;
  const struct {
    const char* what;
    NodeStatusReply reply;
    bool good;
  } kCases[] = {
      {"a question is repeated", {.counts = "\0\1\0\1\0\0\0\0"s, .questions = question}, true},
      {"the name points to the question",
       {.counts = "\0\1\0\1\0\0\0\0"s, .questions = question, .name = "\xC0\x0C"},
       true},
      {"the name points to itself", {.name = "\xC0\x0C"}, false},
      {"the name points beyond the end", {.name = "\xFF\xFF"}, false},
      {"the root's name", {.name = "\0"s}, true},
      {"a name of labels without end", {.name = std::string(300, '\x01')}, false},
      {"a length byte that is none", {.name = "\x7F" + std::string(200, 'A')}, false},
      {"a name in a scope", {.name = AnyNode().substr(0, 33) + "\5scope\0"s}, true},
      {"truncated, yet whole", {.flags = "\x86\0"s}, true},
      {"a request", {.flags = "\0\0"s}, false},
      {"a registration", {.flags = "\xAC\0"s}, false},
      {"a refusal", {.flags = "\x84\5"s}, false},
      {"an address", {.typeAndClass = "\0\x20\0\1"s}, false},
      {"another class", {.typeAndClass = "\0\x21\0\3"s}, false},
  };
  for (const auto& c : kCases) EXPECT_EQ(Reads(c.reply.Bytes()), c.good) << c.what;
}

TEST(NodeStatusReply, OnlyAnotherIdTellsThatItIsForSomethingElse) {
  const std::string reply = NodeStatusReply().Bytes();
  for (const auto& [bytes, mine] : {std::pair(reply, true),
                                    {"\x12\x34"s, true},
                                    {"\x12"s, true},
                                    {""s, true},
                                    {"\x12\x35" + reply.substr(2), false},
                                    {"\x13\x34"s, false}})
    EXPECT_EQ(MayAnswerNodeStatus(BytesOf(bytes), 0x1234), mine) << bytes.size();
}

}  // namespace
}  // namespace netro
