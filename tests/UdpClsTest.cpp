// UDPCls: what goes on the wire, what comes back, and how waiting ends.
#include <netro/UDPCls.h>

#include "DnsTestKit.h"
#include "SocketTestKit.h"

namespace netro {
namespace {

struct UdpCls : testing::Test {
  void SetUp() override {
    udp_->URL("127.0.0.1");
    udp_->Port(peer_.Port());
  }

  DatagramServer peer_{[](const std::string& text) -> DatagramServer::Replies {
    if (text == "question") return {{"reply"}};
    if (text == "several?") return {{"one"}, {std::string(60'000, 'l')}};
    return {};
  }};
  std::unique_ptr<UDPCls> udp_ = std::make_unique<UDPCls>();
  std::int32_t error_ = 77;
};

TEST_F(UdpCls, LastByteStaysHereAndLongDataIsCut) {
  const std::pair<std::size_t, std::vector<std::size_t>> cases[] = {
      {0, {}}, {1, {}}, {2, {1}}, {4096, {4095}}, {4097, {4096}}, {10'000, {4096, 4096, 1807}}};
  for (const auto& [given, sent] : cases) {
    const std::size_t before = peer_.Received().size();
    ASSERT_TRUE(udp_->UPDConnect(error_));
    std::string text(given, 'a');
    for (std::size_t i = 0; i < text.size(); ++i) text[i] = static_cast<char>('a' + i / 4096);
    EXPECT_TRUE(udp_->UDPSendByteArr(Bytes(text.begin(), text.end()), error_));
    EXPECT_EQ(error_, 0);
    const auto received = peer_.Received();
    ASSERT_EQ(received.size() - before, sent.size()) << given;
    for (std::size_t i = 0; i < sent.size(); ++i)
      EXPECT_EQ(received[before + i], text.substr(i * 4096, sent[i]));
  }
}

TEST_F(UdpCls, RepliesComeOneByOneWithOneByteMore) {
  EXPECT_EQ(udp_->UDPQuery("question!", error_), std::string("reply\0", 6));
  EXPECT_EQ(error_, 0);
  EXPECT_EQ(peer_.Received().at(0), "question");
  EXPECT_FALSE(udp_->UDPSendString("more", error_)) << "a query closes when it is done";
  EXPECT_EQ(error_, 10057);
  ASSERT_TRUE(udp_->UPDConnect(error_));
  ASSERT_TRUE(udp_->UDPSendString("several?!", error_));
  EXPECT_EQ(peer_.Received().at(1), "several?") << "and so the replies are there";
  udp_->RetryCount(1);
  EXPECT_EQ(udp_->UDPPollString(error_), std::string("one\0", 4));
  EXPECT_EQ(udp_->UDPPollString(error_).size(), 60'001u);
  EXPECT_EQ(udp_->UDPPollString(error_), "");
  EXPECT_EQ(error_, 10002);
}

TEST_F(UdpCls, SilenceEndsAfterAllPauses) {
  ASSERT_TRUE(udp_->UPDConnect(error_));
  const RunningClock clock([] { return true; });
  const Takes time(milliseconds(999), milliseconds(2500));
  EXPECT_EQ(udp_->UDPPollString(error_), "");
  EXPECT_EQ(error_, 10002);
}

TEST_F(UdpCls, KillEndsSendAndPoll) {
  auto& loop = MessageLoop::ForThisThread();
  ASSERT_TRUE(udp_->UPDConnect(error_));
  loop.PostTask([&] { udp_->Kill(); });
  EXPECT_FALSE(udp_->UDPSendString("xx", error_));
  EXPECT_EQ(error_, 9999);
  std::thread stopper;
  loop.PostTask([&] { stopper = std::thread([&] { udp_->StopWaiting(); }); });
  udp_->RetryPauseMilliSeconds(60'000);
  EXPECT_EQ(udp_->UDPPollString(error_), "");
  EXPECT_EQ(error_, 9999);
  stopper.join();
  EXPECT_TRUE(udp_->UDPSendString("yy", error_)) << "a Kill of before is not one of now";
}

TEST_F(UdpCls, DeletionAndReentryInsideAreSafe) {
  auto& loop = MessageLoop::ForThisThread();
  ASSERT_TRUE(udp_->UPDConnect(error_));
  std::int32_t inner = 0;
  loop.PostTask([&] {
    EXPECT_FALSE(udp_->UDPDisconnect(inner));
    loop.PostTask([&] { udp_.reset(); });
  });
  udp_->RetryPauseMilliSeconds(60'000);
  EXPECT_EQ(udp_->UDPPollString(error_), "");
  EXPECT_EQ(inner, 10036);
  EXPECT_EQ(error_, 9999);
  EXPECT_EQ(udp_, nullptr);
}

TEST_F(UdpCls, ConnectTellsWhatIsWrong) {
  const std::tuple<std::string, std::int32_t, std::int32_t> cases[] = {
      {"255.255.255.255", 9, 10013},
      {"", 9, 11001},
      {std::string(64, 'x'), 9, 11001},
      {"127.0.0.1", 65'536, 10022}};
  for (const auto& [url, port, error] : cases) {
    udp_->URL(url);
    udp_->Port(port);
    EXPECT_FALSE(udp_->UPDConnect(error_)) << url;
    EXPECT_EQ(error_, error) << url;
    EXPECT_FALSE(udp_->TranslateErrorMsg(error_).empty());
  }
  udp_->URL("255.255.255.255");
  udp_->Port(9);
  udp_->AllowBroadcast(true);
  EXPECT_TRUE(udp_->UPDConnect(error_));
  EXPECT_TRUE(udp_->UDPDisconnect(error_));
}

}  // namespace
}  // namespace netro
