// A month of a watcher, a spool and the cache of names, in steps of a quarter of an hour: what they
// keep stays as small as after the first days, and every change and mail is told once.
#include <netro/MailSpool.h>
#include <netro/SocketCls.h>
#include <netro/WatchpostCls.h>
#include <netro/testkit/SmtpServer.h>

#include <iterator>

#include "DnsTestKit.h"

namespace netro {
namespace {

constexpr int kDay = 24 * 4;  // steps
constexpr int kDays = 30;

class Site : private WatchpostClsEvents {
 public:
  explicit Site(const TemporaryFolder& folder) : folder_(folder) {
    site_.On("/", [this](const testkit::HttpRequest&) {
      return HttpServer::Answer(isDown ? "500 x\r\n" : "200 x\r\n", "");
    });
    site_.On("/hook", [this](const testkit::HttpRequest&) {
      ++posts;
      return HttpServer::Answer("204 x\r\n", "");
    });
    WriteFile(folder / "watch.ini",
              "[Settings]\nUpCycle=2\nDownCycle=2\nStateFile=state\n[HostNames]\nweb=" +
                  site_.Url("/") + "|http\n[DownActions]\n1=log\n2=webhook|" + site_.Url("/hook") +
                  "\n[UpActions]\n1=webhook|" + site_.Url("/hook") + "\n");
    post_.Events(this);
    post_.SettingsName(folder / "watch.ini");
    EXPECT_TRUE(post_.StartObservation()) << post_.LastErrMsg();
  }

  bool Probe() {
    const int before = rounds_;
    const auto limit = std::chrono::steady_clock::now() + 20s;
    while (rounds_ == before || posts < changes) {
      if (std::chrono::steady_clock::now() > limit) return false;
      MessageLoop::ForThisThread().Sleep(0ms);
    }
    return true;
  }
  std::size_t StateSize() const { return std::filesystem::file_size(folder_ / "state"); }

  std::atomic<bool> isDown = false;
  std::atomic<int> posts = 0;
  int changes = 0;

 private:
  void Changed(std::int32_t, WatchedChangeEnum) override { ++changes; }
  void RoundEnded() override { ++rounds_; }

  const TemporaryFolder& folder_;
  HttpServer site_;
  WatchpostCls post_;
  int rounds_ = 0;
};

// Each day a mail that is taken, and one that is put off until its time is over.
class Mails : private MailSpoolEvents {
 public:
  explicit Mails(const std::string& folder) {
    std::filesystem::create_directory(folder);
    spool_.Folder(folder);
    spool_.Events(this);
    SendMailCls& mail = spool_.Mail();
    mail.SenderHostName("me.test");
    mail.ReceiverHostName("127.0.0.1");
    mail.Port(server_.Port());
  }

  void Write() {
    SendMailCls& mail = spool_.Mail();
    EXPECT_TRUE(mail.NewTextMsg("Subject", "from@me.test", "to@xy.test, later@xy.test", "Text") &&
                mail.SpoolMsg(spool_.Folder()));
  }
  void Deliver() { EXPECT_TRUE(spool_.DeliverDue()) << spool_.ResultMessage(); }
  std::size_t Waiting() { return spool_.List().size(); }

  int delivered = 0, failed = 0, bounced = 0;

 private:
  void Delivered(const std::string&, const SpooledRecipient&) override { ++delivered; }
  void Failed(const std::string&, const SpooledRecipient&) override { ++failed; }
  void Bounced(const std::string&, const std::string&) override { ++bounced; }

  testkit::SmtpServer server_{[](const std::string& command) -> testkit::SmtpServer::Answer {
    if (command == "RCPT TO:<later@xy.test>") return "450 later\r\n";
    return testkit::SmtpServer::Politely(command);
  }};
  MailSpool spool_;
};

std::ptrdiff_t OpenDescriptors() {
  return std::distance(std::filesystem::directory_iterator("/proc/self/fd"), {});
}

TEST(Month, NothingGrows) {
  namespace dns = testkit::dns;
  const TemporaryFolder folder;
  Site site(folder);
  Mails mails(folder / "spool");
  testkit::DnsServer names([&](const std::string& query) -> testkit::DnsServer::Replies {
    return {testkit::DnsReply(query)
                .Answer(dns::Record(dns::kQuestion, TYPE_A, dns::Octets({127, 0, 0, 1})))
                .Bytes()};
  });
  SocketCls socket;
  socket.DNSURL("127.0.0.1:" + std::to_string(names.Port()));
  socket.ServeStale(true);

  std::ptrdiff_t descriptors = 0;
  std::size_t state = 0;
  std::int32_t cached = 0;
  for (int step = 0; step < kDays * kDay; ++step) {
    const int hour = step % kDay / 4;
    site.isDown = hour >= 5 && hour < 8;
    AdvanceClockForTests(15min);
    ASSERT_TRUE(site.Probe()) << step;
    if (step % kDay == 0) mails.Write();
    mails.Deliver();
    EXPECT_EQ(socket.DNSLookup("h" + std::to_string(step % 500) + ".test"), "127.0.0.1");
    if (step == 10 * kDay) {
      descriptors = OpenDescriptors();
      state = site.StateSize();
      cached = socket.GetDNSCacheCount();
    }
  }
  EXPECT_EQ(site.changes, 2 * kDays);
  EXPECT_EQ(site.posts, site.changes);
  EXPECT_EQ(mails.delivered, kDays + mails.bounced);
  EXPECT_EQ(mails.failed, kDays - 2);
  EXPECT_EQ(mails.bounced, kDays - 2);
  EXPECT_EQ(mails.Waiting(), 2u);
  EXPECT_LE(OpenDescriptors(), descriptors + 2);
  EXPECT_EQ(socket.GetDNSCacheCount(), cached);
  EXPECT_LT(site.StateSize(), 4 * state);
}

}  // namespace
}  // namespace netro
