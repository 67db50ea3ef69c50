// UDPCls: what goes on the wire, what comes back, and how waiting ends.
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <netro/UDPCls.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <memory>
#include <thread>

#include "SocketTestKit.h"
#include "platform/Clock.h"

namespace netro {
namespace {

using std::chrono::milliseconds;

// A datagram socket of the test's own on a free loopback port.
class Peer {
 public:
  Peer() : fd_(socket(AF_INET, SOCK_DGRAM, 0)) {
    sockaddr_in name{};
    name.sin_family = AF_INET;
    name.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t size = sizeof name;
    bind(fd_, reinterpret_cast<sockaddr*>(&name), size);
    getsockname(fd_, reinterpret_cast<sockaddr*>(&name), &size);
    port_ = ntohs(name.sin_port);
  }
  ~Peer() { close(fd_); }
  int Port() const { return port_; }

  // The next datagram, waiting up to five seconds.
  std::string Receive() {
    pollfd entry{fd_, POLLIN, 0};
    if (poll(&entry, 1, 5000) != 1) return "(nothing)";
    std::string text(65'536, '\0');
    socklen_t size = sizeof from_;
    const auto got =
        recvfrom(fd_, text.data(), text.size(), 0, reinterpret_cast<sockaddr*>(&from_), &size);
    text.resize(static_cast<std::size_t>(got));
    return text;
  }
  bool Empty() {
    pollfd entry{fd_, POLLIN, 0};
    return poll(&entry, 1, 0) == 0;
  }
  void Reply(const std::string& text) {
    sendto(fd_, text.data(), text.size(), 0, reinterpret_cast<const sockaddr*>(&from_),
           sizeof from_);
  }

 private:
  int fd_;
  int port_ = 0;
  sockaddr_in from_{};
};

class UdpCls : public testing::Test {
 protected:
  void SetUp() override {
    udp_->URL("127.0.0.1");
    udp_->Port(peer_.Port());
  }

  Peer peer_;
  std::unique_ptr<UDPCls> udp_ = std::make_unique<UDPCls>();
  std::int32_t error_ = 77;
};

TEST_F(UdpCls, LastByteStaysHereAndLongDataIsCut) {
  struct {
    std::size_t given;
    std::vector<std::size_t> sent;
  } const cases[] = {{0, {}},        {1, {}},        {2, {1}},
                     {4096, {4095}}, {4097, {4096}}, {10'000, {4096, 4096, 1807}}};
  for (const auto& c : cases) {
    ASSERT_TRUE(udp_->UPDConnect(error_));
    std::string text(c.given, 'a');
    for (std::size_t i = 0; i < text.size(); ++i) text[i] = static_cast<char>('a' + i / 4096);
    EXPECT_TRUE(udp_->UDPSendByteArr(Bytes(text.begin(), text.end()), error_));
    EXPECT_EQ(error_, 0);
    std::string received;
    for (const std::size_t size : c.sent) {
      received += peer_.Receive();
      EXPECT_EQ(received.back(), text[received.size() - 1]);
      EXPECT_EQ(received.size() % 4096, size % 4096);
    }
    EXPECT_TRUE(peer_.Empty()) << c.given;
    EXPECT_EQ(received, text.substr(0, received.size()));
  }
}

TEST_F(UdpCls, ReplyComesBackWithOneByteMore) {
  std::thread server([&] {
    EXPECT_EQ(peer_.Receive(), "question");
    peer_.Reply("reply");
  });
  EXPECT_EQ(udp_->UDPQuery("question!", error_), std::string("reply\0", 6));
  EXPECT_EQ(error_, 0);
  server.join();
  EXPECT_FALSE(udp_->UDPSendString("more", error_)) << "a query closes when it is done";
  EXPECT_EQ(error_, 10057);
}

TEST_F(UdpCls, SeveralRepliesAreTakenOneByOne) {
  ASSERT_TRUE(udp_->UPDConnect(error_));
  ASSERT_TRUE(udp_->UDPSendString("x!", error_));
  peer_.Receive();
  peer_.Reply("one");
  peer_.Reply(std::string(60'000, 'l'));
  udp_->RetryCount(1);
  EXPECT_EQ(udp_->UDPPollString(error_), std::string("one\0", 4));
  EXPECT_EQ(udp_->UDPPollString(error_).size(), 60'001u);
  EXPECT_EQ(udp_->UDPPollString(error_), "");
  EXPECT_EQ(error_, 10002);
}

TEST_F(UdpCls, SilenceEndsAfterAllPauses) {
  ASSERT_TRUE(udp_->UPDConnect(error_));
  auto& loop = MessageLoop::ForThisThread();
  std::function<void()> pass = [&] {
    AdvanceClockForTests(milliseconds(100));
    loop.PostTask(pass);
  };
  loop.PostTask(pass);
  const TimePoint before = Now();
  EXPECT_EQ(udp_->UDPPollString(error_), "");
  EXPECT_EQ(error_, 10002);
  EXPECT_GE(Now() - before, milliseconds(999));
  EXPECT_LT(Now() - before, milliseconds(1900));
  pass = [] {};
  loop.PumpMessages();
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
  struct {
    std::string url;
    std::int32_t port;
    std::int32_t error;
  } const cases[] = {{"255.255.255.255", 9, 10013},
                     {"", 9, 11001},
                     {std::string(64, 'x'), 9, 11001},
                     {"127.0.0.1", 65'536, 10022}};
  for (const auto& c : cases) {
    udp_->URL(c.url);
    udp_->Port(c.port);
    EXPECT_FALSE(udp_->UPDConnect(error_)) << c.url;
    EXPECT_EQ(error_, c.error) << c.url;
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
