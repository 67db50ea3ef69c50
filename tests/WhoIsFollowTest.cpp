// WhoIsCls with referrals and a table of servers: who is asked what, and limits of the whole.
#include <netro/WhoIsCls.h>

#include <sstream>

#include "DnsTestKit.h"
#include "socket/HostLookup.h"
#include "web/PublicAddress.h"
#include "web/WhoIsReferral.h"
#include "web/WhoIsTable.h"

namespace netro {
namespace {

TEST(WhoIsTableReading, TheNarrowestLineThatFitsCounts) {
  WhoIsTable table;
  const auto problems = table.Read(
      "# what server how\n"
      "*                 start.test\r\n"
      ".example          a.test  domain NAME\n"
      "  .b.example\tb.test:4343   -x NAME -y  # of its own\n"
      "\\.co\\.test$      c.test\n"
      "192.0.2.0/24      n.test  n + NAME\n"
      "192.0.2.128/25    m.test\n"
      "2001:db8::/32     [2001:db8::1]:44\n"
      "AS64496-AS64511   r.test\n"
      "AS64500           n.test  a + NAME\n"
      "-                 start.test  = NAME\n"
      "\n"
      "(com|net)$        x.test\n"
      ".a                b/c\n"
      ".a                d.test  no place\n"
      "192.0.2.0/33      e.test\n"
      "AS9-AS1           f.test\n"
      ".a\n");
  ASSERT_EQ(problems.size(), 6u);
  for (const std::size_t i : {0u, 1u, 2u, 3u, 4u, 5u})
    EXPECT_TRUE(problems[i].starts_with("line " + std::to_string(13 + i) + ": ")) << problems[i];
  const char* const kCases[][3] = {
      // a query, the server and what it is asked
      {"x.example", "a.test:43", "domain x.example"},
      {"X.Example.", "a.test:43", "domain X.Example."},
      {"x.b.example", "b.test:4343", "-x x.b.example -y"},
      {"b.example", "a.test:43", "domain b.example"},
      {"xexample", "start.test:43", "= xexample"},
      {"x.co.test", "c.test:43", "x.co.test"},
      {"192.0.2.1", "n.test:43", "n + 192.0.2.1"},
      {"192.0.2.200", "m.test:43", "192.0.2.200"},
      {"192.0.2.0/26", "n.test:43", "n + 192.0.2.0/26"},
      {"192.0.3.1", "start.test:43", "= 192.0.3.1"},
      {"2001:db8::5", "[2001:db8::1]:44", "2001:db8::5"},
      {"as64499", "r.test:43", "as64499"},
      {"AS64500", "n.test:43", "a + AS64500"},
      {"AS64512", "start.test:43", "= AS64512"},
      {"64500", "start.test:43", "= 64500"},
      {"", "start.test:43", "= "},
  };
  for (const auto& [query, server, asked] : kCases) {
    const auto found = table.ServerFor(query);
    ASSERT_TRUE(found.has_value()) << query;
    EXPECT_EQ(found->Text(), server) << query;
    EXPECT_EQ(table.QueryFor(*found, query), asked);
  }
  table.Read(".example a.test\n192.0.2.0/24 b.test\n");
  for (const char* none : {"x.test", "192.0.3.1"}) EXPECT_FALSE(table.ServerFor(none)) << none;
}

TEST(PublicAddress, WhatIsOneAndWhatIsNot) {
  const auto expect = [](const std::string& addresses, bool isPublic) {
    std::istringstream words(addresses);
    for (std::string address; words >> address;)
      EXPECT_EQ(IsPublicAddress(address), isPublic) << address;
  };
  expect("192.0.2.1 9.255.255.255 11.0.0.0 172.32.0.1 100.128.0.1 223.255.255.255 2001:db8::1",
         true);
  expect("2a00::1 64:ff9b::c000:201 2002:c000:201::1", true);
  expect("0.0.0.1 10.1.2.3 100.64.0.1 127.0.0.1 169.254.1.1 172.16.0.1 172.31.255.255", false);
  expect("192.0.0.1 192.168.0.1 198.19.0.1 224.0.0.1 240.0.0.1 255.255.255.255", false);
  expect(":: ::1 fe80::1 fd00::1 ff02::1 64:ff9b::7f00:1 2002:7f00:1:: 2001::1", false);
  expect("::ffff:127.0.0.1", false);
  EXPECT_FALSE(IsPublic(IpAddress()));
  EXPECT_FALSE(IsPublicAddress("a.test"));
}

TEST(WhoIsReferral, OnlyLinesThatNameAHostLeadOn) {
  const std::string full = std::string(64, 'x');
  const auto find = [](const std::string& answer) {
    return FindWhoIsReferral(answer, {{"first.test", 43}, {"asked.test", 43}});
  };
  for (const std::string& line :
       {"refer: a.test"s, "whois: A.test.\r"s, "% comment: x\nwhois:   a.test  \r"s,
        "   Registrar WHOIS Server: a.test:43"s, "WHOIS SERVER:a.test"s,
        "ReferralServer:  whois://a.test"s, "referralserver: WHOIS://a.test/"s,
        "Whois Server:\nWhois Server: \r\nREFER\t:\ta.test"s,
        std::string(70'000, 'x') + "\nrefer: a.test"s,
        "refer: asked.test\nrefer: first.test\nrefer: a b\nrefer: a.test"s}) {
    EXPECT_EQ(find(line + "\n").next, (WhoIsServer{"a.test", 43})) << line;
  }
  for (const std::string& line : {"remarks: whois: a.test"s, "refers: a.test"s, "see whois a.test"s,
                                  "refer a.test"s, ": a.test"s, "a.test:"s, "nserver: a.test"s,
                                  "WHOIS Servers: a.test"s, "refer:"s, "refer: asked.test"s}) {
    EXPECT_EQ(find(line).next, std::nullopt) << line;
    EXPECT_TRUE(find(line).notes.empty()) << line;
  }
  // What cannot be a host, and what leads elsewhere than to a WHOIS server.
  std::istringstream hosts(
      "../../etc/passwd\na b\na;reboot\n-oProxy\na..test\n.\n:43\na:\na:0\na:65536\na:43:43\na:-1\n"
      "a:4x\n[::1]\nuser@a.test\na.test/path\n\x1b[31ma.test\na\0.test\n\xc3\xa4.test\na.\xff\n"
      "http://a.test\nrwhois://a.test:4321\nwhois://\nwhois://a.test/b\n127.1\n127.0.0.01\n"s +
      full + "\n" + full + "." + full + "\n" + std::string(100'000, 'x'));
  for (std::string host; std::getline(hosts, host);) {
    const WhoIsReferral referral = find("refer: " + host + "\n");
    EXPECT_EQ(referral.next, std::nullopt) << host;
    ASSERT_EQ(referral.notes.size(), 1u) << host;
    EXPECT_TRUE(referral.notes[0].starts_with("ignored the referral to ")) << host;
    EXPECT_LT(referral.notes[0].size(), 500u) << host;
  }
  std::string flood;
  for (int i = 0; i < 500'000; ++i) flood += "refer: a b\n";
  EXPECT_TRUE(find(flood + "refer: a.test").notes.at(0).ends_with(", and 99 more like it"));
  EXPECT_EQ(find("refer: first.test").notes, std::vector{"asked.test:43 refers back to "
                                                         "first.test:43, which has been asked"s});
}

struct WhoIsFollow : testing::Test {
  WhoIsFollow() {
    who_->Timeout(10);
    who_->Follow(true);
    DefaultHostLookup().Clear();
  }

  static std::string At(const BytesServer& server, const std::string& host = "127.0.0.1") {
    return host + ":" + std::to_string(server.Port());
  }

  std::unique_ptr<WhoIsCls> who_ = std::make_unique<WhoIsCls>();
};

TEST_F(WhoIsFollow, EveryAnswerIsKeptAndEachServerAskedInItsWay) {
  BytesServer last({{AwaitText("\r\n"), Send("the end\n")}});
  BytesServer first({{AwaitText("\r\n"), Send("refer: " + At(last) + "\n")}});
  who_->FollowPrivate(true);
  EXPECT_TRUE(
      who_->ServerTable(".example " + At(first) + " domain NAME\n- " + At(last) + " n + NAME\n")
          .empty());
  std::vector<std::string> told;
  who_->AnswerSink([&](const WhoIsAnswer& answer) { told.push_back(answer.Query); });
  EXPECT_TRUE(who_->WhoIs("", "a.example")) << who_->LastErrMsg();
  EXPECT_EQ(told, (std::vector<std::string>{"domain a.example", "n + a.example"}));
  EXPECT_EQ(who_->Result(), "the end\n");
  ASSERT_EQ(who_->Answers().size(), 2u);
  EXPECT_EQ(who_->Answers()[0].Server, At(first));
  EXPECT_EQ(who_->Answers()[0].Text, "refer: " + At(last) + "\n");
  EXPECT_EQ(who_->Answers()[0].RefersTo, At(last));
  EXPECT_EQ(who_->Answers()[1].RefersTo, "");
  EXPECT_EQ(last.Received(0), "n + a.example\r\n");

  EXPECT_TRUE(who_->WhoIs(At(first), "b.example"));
  EXPECT_EQ(first.Received(1), "b.example\r\n") << "who names a server asks as it is";
  who_->Follow(false);
  EXPECT_TRUE(who_->WhoIs(At(first), "c"));
  EXPECT_EQ(who_->Answers().size(), 1u);
  EXPECT_FALSE(who_->WhoIs("", "c.test"));
  EXPECT_EQ(who_->LastErr(), 10022);
}

TEST_F(WhoIsFollow, NoReferralLeadsIntoTheOwnNetwork) {
  SystemRoot root;
  root.Put("etc/hosts", "127.0.0.1 inside.test\n");
  BytesServer inside({{AwaitText("\r\n"), Send("secret\n")}});
  for (const std::string host : {"127.0.0.1", "inside.test"}) {
    BytesServer first({{AwaitText("\r\n"), Send("refer: " + At(inside, host) + "\n")}});
    EXPECT_FALSE(who_->WhoIs(At(first), "x"));
    EXPECT_EQ(who_->LastErr(), 10013) << who_->LastErrMsg();
    EXPECT_NE(who_->LastErrMsg().find(host + " leads to 127.0.0.1"), std::string::npos);
    ASSERT_EQ(who_->Answers().size(), 2u);
    EXPECT_NE(who_->Answers()[0].Text, "") << "what came before is kept";
  }
  EXPECT_EQ(inside.Connections(), 0u);
}

TEST_F(WhoIsFollow, TheTotalLimitsTheWholeChain) {
  BytesServer silent({{AwaitText("\r\n"), Stay()}});
  BytesServer first({{AwaitText("\r\n"), Send("refer: " + At(silent) + "\n")}});
  who_->FollowPrivate(true);
  who_->Timeout(600);
  who_->TotalTimeout(20);
  const RunningClock clock([&] { return !silent.ReceivedSoFar(0).empty(); });
  const Takes time(seconds(0), seconds(60));
  EXPECT_FALSE(who_->WhoIs(At(first), "x"));
  EXPECT_EQ(who_->LastErr(), 10002);
  EXPECT_EQ(who_->Answers().size(), 2u);
}

TEST_F(WhoIsFollow, MaxAnswerIsKeptOfALongerOne) {
  const BytesServer server({{AwaitText("\r\n"), Send("12345")}});
  for (const std::int64_t most : {4, 5, 0, -1}) {
    who_->MaxAnswer(most);
    EXPECT_EQ(who_->WhoIs(At(server), "x"), most != 4);
    EXPECT_EQ(who_->LastErr(), most == 4 ? 10040 : 0);
    EXPECT_EQ(who_->Result(), most == 4 ? "1234" : "12345");
  }
}

TEST_F(WhoIsFollow, TheSinkMayDeleteTheObject) {
  BytesServer last({{AwaitText("\r\n"), Send("the end\n")}});
  BytesServer first({{AwaitText("\r\n"), Send("refer: " + At(last) + "\n")}});
  who_->FollowPrivate(true);
  who_->AnswerSink([&](const WhoIsAnswer&) { who_.reset(); });
  EXPECT_FALSE(who_->WhoIs(At(first), "x"));
  EXPECT_EQ(last.Connections(), 0u);
}

}  // namespace
}  // namespace netro
