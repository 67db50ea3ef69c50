// The way through a netlink answer: its messages and attributes, also when lengths lie.
#include <linux/netlink.h>
#include <linux/rtnetlink.h>

#include <cerrno>

#include "TestKit.h"
#include "platform/ErrorNumbers.h"
#include "platform/linux/Netlink.h"

namespace netro {
namespace {

template <class T>
std::string Raw(T value) {
  return {reinterpret_cast<const char*>(&value), sizeof value};
}

std::string Padded(std::string bytes) {
  bytes.resize((bytes.size() + 3) / 4 * 4);
  return bytes;
}

// `lie` is added to the length field.
std::string Message(int type, const std::string& payload, int lie = 0) {
  nlmsghdr header{};
  header.nlmsg_len =
      static_cast<std::uint32_t>(static_cast<int>(sizeof header + payload.size()) + lie);
  header.nlmsg_type = static_cast<std::uint16_t>(type);
  return Padded(Raw(header) + payload);
}

std::string Attribute(int type, const std::string& value, int lie = 0) {
  rtattr header{};
  header.rta_len = static_cast<std::uint16_t>(static_cast<int>(sizeof header + value.size()) + lie);
  header.rta_type = static_cast<std::uint16_t>(type);
  return Padded(Raw(header) + value);
}

// What a walk saw, from a copy of exactly the bytes.
struct Walk {
  explicit Walk(const std::string& datagram) {
    const std::vector<std::uint8_t> bytes(datagram.begin(), datagram.end());
    end = WalkNetlink(bytes, [this](std::uint16_t type, NetlinkBytes payload) {
      seen.emplace_back(type, std::string(payload.begin(), payload.end()));
    });
  }
  std::optional<std::int32_t> end;
  std::vector<std::pair<int, std::string>> seen;
};

std::string Find(const std::string& attributes, std::uint16_t type) {
  const std::vector<std::uint8_t> bytes(attributes.begin(), attributes.end());
  const NetlinkBytes found = FindAttribute(bytes, type);
  return {found.begin(), found.end()};
}

TEST(Netlink, MessagesUpToTheEnd) {
  const std::string two = Message(RTM_NEWLINK, "one") + Message(RTM_NEWADDR, "");
  const std::vector<std::pair<int, std::string>> kBoth = {{RTM_NEWLINK, "one"}, {RTM_NEWADDR, ""}};
  const std::pair<std::string, std::optional<std::int32_t>> kCases[] = {
      {two, std::nullopt},
      {two + Message(NLMSG_DONE, Raw(std::int32_t{0})), 0},
      {two + Message(NLMSG_DONE, ""), 0},
      {two + Message(NLMSG_DONE, Raw(-EINTR)), SocketErrorNumber(EINTR)},
      {two + Message(NLMSG_ERROR, Raw(std::int32_t{0}) + "request"), 0},
      {two + Message(NLMSG_ERROR, Raw(-EPERM)), SocketErrorNumber(EPERM)},
      {two + Message(NLMSG_ERROR, "abc"), kErrInvalidArgument},
      {two + Message(NLMSG_DONE, "") + Message(RTM_NEWLINK, "behind"), 0}};
  for (const auto& [datagram, end] : kCases) {
    const Walk walk(datagram);
    EXPECT_EQ(walk.end, end);
    EXPECT_EQ(walk.seen, kBoth);
  }
  EXPECT_EQ(Walk("").end, std::nullopt);
}

TEST(Netlink, DatagramCutAtEveryByte) {
  const std::string first = Message(RTM_NEWLINK, "one!");
  const std::string whole = first + Message(NLMSG_DONE, Raw(std::int32_t{0}));
  for (std::size_t size = 1; size < whole.size(); ++size) {
    const Walk walk(whole.substr(0, size));
    EXPECT_EQ(walk.end, size == first.size() ? std::nullopt : std::optional(kErrInvalidArgument))
        << size;
    EXPECT_EQ(walk.seen.size(), size < first.size() ? 0u : 1u) << size;
  }
}

TEST(Netlink, LengthsThatLie) {
  for (const int lie : {-20, -17, -5, 1, 100, 0x7FFF'0000})
    EXPECT_EQ(Walk(Message(RTM_NEWLINK, "1234", lie)).end, kErrInvalidArgument) << lie;
  EXPECT_EQ(Walk(Message(RTM_NEWLINK, "12345", 3)).seen[0].second, "12345\0\0\0"s)
      << "the padding is there";
}

TEST(Netlink, AttributesByType) {
  const std::string list = Attribute(1, "a") + Attribute(2, "") + Attribute(3, "12345678") +
                           Attribute(3, "again") + Attribute(4 | NLA_F_NESTED, "nested");
  const char* const kValues[] = {"", "a", "", "12345678", "nested", ""};
  for (std::uint16_t type = 1; type <= 5; ++type) EXPECT_EQ(Find(list, type), kValues[type]);
  const std::string two = Attribute(1, "abc") + Attribute(2, "defg");
  for (std::size_t size = 0; size < two.size(); ++size) {
    const std::string cut = two.substr(0, size);
    EXPECT_EQ(Find(cut, 1), size < 7 ? "" : "abc") << size;
    EXPECT_EQ(Find(cut, 2), "") << size;
  }
  for (const int lie : {-8, -7, -5, 1, 100, 0x7000}) {
    EXPECT_EQ(Find(Attribute(1, "1234", lie), 1), "") << lie;
    EXPECT_EQ(Find(Attribute(2, "1234", lie) + Attribute(1, ""), 1), "") << lie;
  }
}

}  // namespace
}  // namespace netro
