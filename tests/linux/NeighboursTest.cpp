// NetBIOSCls between two network namespaces: MAC addresses by ARP and neighbour discovery, and this
// host's adapters with their counters. Skipped where the system has no namespaces for this user;
// the test low_ports then runs them. And the way through a netlink answer, also when lengths lie.
#include <linux/netlink.h>
#include <linux/rtnetlink.h>
#include <netro/NetBIOSCls.h>

#include <cerrno>

#include "Capability.h"
#include "DnsTestKit.h"
#include "TwoNetworks.h"
#include "platform/ErrorNumbers.h"
#include "platform/Neighbours.h"
#include "platform/linux/Netlink.h"
#include "support/Text.h"

namespace netro {
namespace {

constexpr char kThere[] = "10.77.0.2";
constexpr char kAbsent[] = "10.77.0.9";
constexpr char kThere6[] = "fd77::2";
constexpr char kAbsent6[] = "fd77::9";
constexpr char kOtherMac[] = "02:00:5E:00:00:99";

struct Neighbours : testing::Test {
  void SetUp() override {
    if (!networks_.IsMade()) GTEST_SKIP() << "no network namespaces can be made here";
  }

  // The MAC address found; empty when there is none.
  std::string Find(const std::string& ip) {
    const std::string before = netbios_->MacAddress();
    if (netbios_->GetRemoteMACAddress(ip, ":")) return netbios_->MacAddress();
    if (netbios_) {
      EXPECT_EQ(netbios_->MacAddress(), before);
    }
    return {};
  }

  // The same for one who is asked for and does not answer.
  std::string FindInVain(const std::string& ip) {
    const RunningClock clock([] { return true; });
    const TimePoint before = Now();
    std::string found = Find(ip);
    EXPECT_GE(Now() - before, seconds(1));
    return found;
  }

  // Who waits turns the loop.
  bool Waits(const std::string& ip) {
    const auto turned = std::make_shared<bool>(false);
    MessageLoop::ForThisThread().PostTask([=] { *turned = true; });
    EXPECT_EQ(Find(ip), "") << ip;
    const bool waited = *turned;
    MessageLoop::ForThisThread().PumpMessages();
    return waited;
  }

  static void Enter(const std::string& ip, const std::string& mac, const std::string& state) {
    ASSERT_TRUE(TwoNetworks::Ip("neighbour replace " + ip + " lladdr " + mac + " dev here nud " +
                                state + "\n"));
  }

  static bool IsKnown(const std::string& ip) {
    return KnownNeighbour(*ParseAddress(ip)).has_value();
  }

  TwoNetworks networks_;
  std::unique_ptr<NetBIOSCls> netbios_ = std::make_unique<NetBIOSCls>();
};

// The parameter: true for IPv6.
struct NeighboursOfBoth : Neighbours, testing::WithParamInterface<bool> {
  // Whoever had an address there has it no longer.
  void TakeAway(const std::string& ip) {
    ASSERT_TRUE(networks_.IpThere("address delete " + ip + prefix_ + " dev there\n"));
  }
  void Forget(const std::string& ip) {
    ASSERT_TRUE(TwoNetworks::Ip("neighbour delete " + ip + " dev here\n"));
  }

  const std::string here_ = GetParam() ? "fd77::1" : "10.77.0.1";
  const std::string there_ = GetParam() ? kThere6 : kThere;
  const std::string absent_ = GetParam() ? kAbsent6 : kAbsent;
  const std::string prefix_ = GetParam() ? "/64" : "/24";
};

INSTANTIATE_TEST_SUITE_P(Neighbours, NeighboursOfBoth, testing::Bool(),
                         [](const auto& family) { return family.param ? "IPv6" : "IPv4"; });

TEST_P(NeighboursOfBoth, TheNetworkIsAskedAndTheAnswerKept) {
  EXPECT_FALSE(IsKnown(there_));
  EXPECT_EQ(Find(there_), TwoNetworks::kMacThere);
  EXPECT_TRUE(IsKnown(there_));
  TakeAway(there_);
  EXPECT_EQ(Find(there_), TwoNetworks::kMacThere) << "confirmed not long ago";
}

TEST_F(Neighbours, OwnAddressIsThatOfItsInterface) {
  ASSERT_TRUE(
      TwoNetworks::Ip("address add 10.78.0.1/24 dev here label here:alias\n"
                      "address add 10.79.0.1/32 dev lo\n"));
  EXPECT_EQ(Find("10.77.0.1"), TwoNetworks::kMacHere);
  EXPECT_EQ(Find("10.78.0.1"), TwoNetworks::kMacHere);
  EXPECT_EQ(Find("10.79.0.1"), "") << "on loopback";
}

TEST_P(NeighboursOfBoth, WhoIsAbsentIsNotFoundUntilItComes) {
  EXPECT_EQ(FindInVain(absent_), "");
  ASSERT_TRUE(networks_.IpThere("address add " + absent_ + prefix_ + " dev there\n"));
  // The clock ran ahead of the system's, which asks again only after a second.
  Forget(absent_);
  EXPECT_EQ(Find(absent_), TwoNetworks::kMacThere);
}

TEST_P(NeighboursOfBoth, StatesOfTheTable) {
  const std::tuple<const char*, bool, bool> kStates[] = {
      {"permanent", true, true}, {"reachable", true, true}, {"delay", false, true},
      {"probe", false, true},    {"stale", false, false},   {"failed", false, false},
      {"noarp", false, false}};
  for (const auto& [state, confirmed, known] : kStates) {
    Enter(absent_, kOtherMac, state);
    EXPECT_EQ(ConfirmedNeighbour(*ParseAddress(absent_)).has_value(), confirmed) << state;
    EXPECT_EQ(IsKnown(absent_), known) << state;
    Forget(absent_);
  }
}

TEST_F(Neighbours, AddressesOfIPv6) {
  ASSERT_TRUE(TwoNetworks::Ip("address add fd78::1/64 dev here\naddress add fd79::1/128 dev lo\n"));
  EXPECT_EQ(Find("fd77::1"), TwoNetworks::kMacHere);
  EXPECT_EQ(Find("fd78::1"), TwoNetworks::kMacHere);
  EXPECT_EQ(Find("fd79::1"), "") << "on loopback";
  // Made of the MAC addresses (RFC 4291, appendix A).
  EXPECT_EQ(Find("fe80::5eff:fe00:a%here"), TwoNetworks::kMacHere);
  EXPECT_EQ(Find("fe80::5eff:fe00:b%here"), TwoNetworks::kMacThere);
  EXPECT_EQ(Find("FD77:0::2"), TwoNetworks::kMacThere);
}

TEST_F(Neighbours, AGoodEntryIsTaken) {
  Enter(kThere, kOtherMac, "permanent");
  EXPECT_EQ(Find(kThere), kOtherMac);
  EXPECT_EQ(Find("10.77.2"), kOtherMac) << "as the system reads dotted addresses";
}

TEST_P(NeighboursOfBoth, AnUnconfirmedEntryIsNotBelieved) {
  for (const char* state : {"stale", "delay", "probe"}) {
    Enter(there_, kOtherMac, state);
    EXPECT_EQ(Find(there_), TwoNetworks::kMacThere) << state;
    Enter(absent_, kOtherMac, state);
    EXPECT_EQ(FindInVain(absent_), "") << state;
  }
}

TEST_P(NeighboursOfBoth, WithoutPermissionAStaleEntryIsTheBestThereIs) {
  Enter(absent_, kOtherMac, "stale");
  const WithoutCapability scope(CAP_NET_ADMIN);
  EXPECT_EQ(Find(absent_), kOtherMac);
  EXPECT_EQ(Find(there_), TwoNetworks::kMacThere) << "asking needs no permission";
}

TEST_F(Neighbours, AnInterfaceWithoutArpKnowsNobody) {
  ASSERT_TRUE(TwoNetworks::Ip("link set here arp off\n"));
  EXPECT_EQ(FindInVain(kThere), "");
}

TEST_F(Neighbours, NobodyIsAskedForAddressesThatAreNoNeighbours) {
  ASSERT_TRUE(
      TwoNetworks::Ip("route add default via 10.77.0.2\nroute add 224.0.0.0/4 dev here\n"
                      "route add default via fd77::2\n"));
  for (const std::string& ip :
       Split(",there.test,127.0.0.1,127.9.9.9,0.0.0.0,0.0.0.1,224.0.0.1,239.255.255.250,"
             "255.255.255.255,10.77.0.255,198.51.100.1,10.77.0.2 x,::,::1,ff02::1%here,ff0e::1,"
             "2001:db8::1,fe80::5eff:fe00:b,fe80::1%nowhere,fd77::2 x",
             ','))
    EXPECT_FALSE(Waits(ip)) << ip;
  EXPECT_FALSE(IsKnown(kThere)) << "nothing went to the gateway";
  EXPECT_FALSE(IsKnown(kThere6)) << "nothing went to the gateway";
}

TEST_F(Neighbours, ADeadCableIsNoWait) {
  ASSERT_TRUE(TwoNetworks::Ip("link set here down\n"));
  EXPECT_FALSE(Waits(kThere));
  EXPECT_FALSE(Waits(kThere6));
}

TEST_F(Neighbours, TheCallCanBeEnded) {
  for (const auto& end : std::initializer_list<std::function<void()>>{
           [&] { netbios_->StopWaiting(); }, [&] { netbios_->Kill(); },
           [&] {
             std::int32_t error = 0;
             EXPECT_FALSE(netbios_->GetMacAddress(0, "*", "-", error));
             EXPECT_EQ(error, 0x21);
             netbios_->StopWaiting();
           },
           [&] { netbios_.reset(); }}) {
    PostWhen([] { return true; }, end);
    EXPECT_FALSE(netbios_->GetRemoteMACAddress(kAbsent, "-"));
    if (netbios_) {
      EXPECT_EQ(Find(kThere), TwoNetworks::kMacThere);
    }
  }
}

TEST_F(Neighbours, DeletionWhenTheAnswerIsThere) {
  PostWhen([] { return true; },
           [&] {
             Enter(kAbsent, kOtherMac, "reachable");
             netbios_.reset();
           });
  EXPECT_FALSE(netbios_->GetRemoteMACAddress(kAbsent, "-"));
}

TEST_F(Neighbours, WhatTheSystemLearnsWhileTheCallWaitsIsFound) {
  PostWhen([] { return true; }, [] { Enter(kAbsent, kOtherMac, "reachable"); });
  EXPECT_EQ(Find(kAbsent), kOtherMac);
}

TEST_F(Neighbours, OwnAdaptersHaveTheirCounters) {
  std::int32_t error = -1;
  ASSERT_TRUE(netbios_->GetMacAddress(0, "*", ":", error));
  EXPECT_EQ(netbios_->MacAddress(), TwoNetworks::kMacHere);
  EXPECT_EQ(netbios_->AdapterType(), 0xFE);
  const std::int32_t sent = netbios_->XmitSuccess(), received = netbios_->RecvSuccess();
  for (int i = 0; i < 100; ++i) EXPECT_TRUE(AskForNeighbour(*ParseAddress(kThere)));
  ASSERT_TRUE(netbios_->GetMacAddress(0, "", ":", error));
  EXPECT_GE(netbios_->XmitSuccess(), sent + 101) << "with the ARP request";
  EXPECT_GE(netbios_->RecvSuccess(), received + 1) << "the ARP reply";
  EXPECT_LT(netbios_->RecvSuccess(), received + 100) << "port 9 is closed, which is told seldom";
  EXPECT_EQ(netbios_->IframeXmitErr(), 0);
  EXPECT_EQ(netbios_->NameCount(), 0);
}

TEST_F(Neighbours, OwnAdaptersInTheOrderOfTheirNumbers) {
  ASSERT_TRUE(
      TwoNetworks::Ip("link add aaa index 900 address 02:00:00:00:09:00 type veth peer name bbb "
                      "index 257 address 02:00:00:00:02:57\n"));
  const char* const kMacs[] = {TwoNetworks::kMacHere, "02:00:00:00:02:57", "02:00:00:00:09:00"};
  std::int32_t error = -1;
  std::int16_t number = 0;
  for (const char* mac : kMacs) {
    ASSERT_TRUE(netbios_->GetMacAddress(number++, "*", ":", error));
    EXPECT_EQ(netbios_->MacAddress(), mac);
  }
  EXPECT_FALSE(netbios_->GetMacAddress(number, "*", ":", error));
  EXPECT_EQ(error, 0x23);
}

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
