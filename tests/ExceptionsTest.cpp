// What the host's functions throw: it arrives at the caller of the blocking call or of the pump,
// which is over then, and every object can be used again at once. EventExceptionsTest has more.
//
// Each blocking call is cut at every event, and at many turns of its loop, by a trap that throws
// once. Then the loop has nothing to tell, all descriptors are closed, and the same object does the
// same call.

#include <gtest/gtest.h>
#include <netro/HTTPCls.h>
#include <netro/ICMPCls.h>
#include <netro/NetBIOSCls.h>
#include <netro/QueryTimeCLS.h>
#include <netro/SendMailCls.h>
#include <netro/UDPCls.h>
#include <netro/WhoIsCls.h>

#include <atomic>
#include <filesystem>
#include <functional>
#include <iterator>
#include <memory>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "DnsTestKit.h"
#include "EchoPermission.h"
#include "ExceptionKit.h"
#include "SendMailKit.h"
#include "TemporaryFolder.h"
#include "tests/peers/BytesServer.h"
#include "tests/peers/DatagramServer.h"
#include "tests/peers/HttpServer.h"
#include "tests/peers/SmtpServer.h"
#include "tests/peers/SocksServer.h"
#include "tests/peers/TimeReply.h"

namespace netro {
namespace {

using namespace std::string_literals;
using peers::AwaitText;
using peers::BytesServer;
using peers::HttpServer;

// A label of 64 letters: no resolver asks the network for it.
const std::string kNoName(64, 'x');
constexpr std::int32_t kPending = 3018;

std::ptrdiff_t OpenDescriptors() {
  return std::distance(std::filesystem::directory_iterator("/proc/self/fd"), {});
}

// An object of the library and its call, which is true when it has done what it should.
struct Subject {
  std::string name;
  std::function<bool()> run;
  std::function<void()> destroy;
  std::function<void()> afterCut = [] {};
};

template <class Object>
Subject Make(const std::string& name, std::function<void(Object&)> prepare,
             std::function<bool(Object&)> run, std::function<void(Object&)> afterCut = nullptr) {
  const auto object = std::make_shared<std::unique_ptr<Object>>(std::make_unique<Object>());
  prepare(**object);
  Subject subject{name, [=] { return run(**object); }, [=] { object->reset(); }};
  if (afterCut) subject.afterCut = [=] { afterCut(**object); };
  return subject;
}

peers::DnsServer::Replies AnswerAll(const std::string& query) {
  if (TypeOf(query) != TYPE_AXFR) return KnowAll(query);
  const std::string soa = SoaRecord();
  return {peers::DnsReply(query).Answer(soa).Answer(HostRecord(1)).Answer(soa).Bytes()};
}

class Exceptions : public testing::Test {
 protected:
  Exceptions() {
    http_.OnText("/", std::string(100'000, 'b'));
    http_.On("/file", [](const peers::HttpRequest&) {
      return HttpServer::Answer("200 OK\r\nContent-Type: image/png\r\n", std::string(50'000, 'f'));
    });
  }

  void CutAll(const std::vector<Subject>& subjects);
  std::vector<Subject> Subjects();
  std::vector<Subject> Web();
  std::vector<Subject> Mail();
  std::vector<Subject> Names();
  std::vector<Subject> Others();

  // True when the trap has ended the call.
  bool Cut(const Subject& subject, Trap::Moment moment, int passes,
           std::function<void()> first = nullptr) {
    trap_.Set(moment, passes, std::move(first));
    const bool thrown = Throws([&] { EXPECT_TRUE(subject.run()) << "nothing was thrown"; });
    trap_.Clear();
    return thrown;
  }

  // The servers close their ends as soon as the client has.
  void ExpectQuiet() {
    const int events = trap_.events;
    const auto limit = std::chrono::steady_clock::now() + std::chrono::seconds(5);
    bool closed = false;
    while (!closed && std::chrono::steady_clock::now() < limit) {
      ThisLoop().PumpMessages();
      std::this_thread::yield();
      closed = OpenDescriptors() <= descriptors_;
    }
    EXPECT_TRUE(closed);
    EXPECT_EQ(trap_.events, events) << "events of a call that is over";
  }

  // Returns how often it could be cut.
  int CutEverywhere(const Subject& subject, Trap::Moment moment) {
    int times = 0;
    for (int passes = 0, step = 1; Cut(subject, moment, passes); passes += step, ++times) {
      SCOPED_TRACE(passes);
      if (moment != Trap::kEvent && passes >= 4) step = passes / 2;
      subject.afterCut();
      ExpectQuiet();
      EXPECT_TRUE(subject.run()) << "the same object again";
      if (HasFailure()) break;
    }
    return times;
  }

  Trap trap_;
  Sink sink_{trap_};
  TemporaryFolder folder_;
  HttpServer http_;
  peers::SmtpServer smtp_;
  peers::DnsServer dns_{AnswerAll};
  peers::SocksServer proxy_;
  peers::DatagramServer udpTime_{[](const std::string&) -> peers::DatagramServer::Replies {
    return {peers::Big32(3'155'673'600)};
  }};
  peers::DatagramServer udpEcho_{
      [](const std::string& text) -> peers::DatagramServer::Replies { return {text}; }};
  BytesServer whois_{{{AwaitText("\n"), peers::Send("an answer")}}};
  BytesServer reader_{{{}}};
  std::ptrdiff_t descriptors_ = 0;
};

std::vector<Subject> Exceptions::Web() {
  const auto query = [](HTTPCls& http) {
    bool timeout = false;
    DefaultHostLookup().Clear();
    const std::string answer = http.HTTPQuery(timeout);
    return http.LastErr() == 0 && http.HTTPResult() == 200 && http.BodyLen() >= 50'000;
  };
  const auto prepare = [this](const std::string& host, const std::string& path) {
    return [=, this](HTTPCls& http) {
      http.Events(&sink_);
      http.DNSURL(UrlOf(dns_));
      http.URL("http://" + host + ":" + std::to_string(http_.Port()) + path);
    };
  };
  const auto toFile = [=, this](HTTPCls& http) {
    prepare("127.0.0.1", "/file")(http);
    http.SaveAsFile(true);
    http.Filename(folder_ / "body");
  };
  const auto fileGone = [this](HTTPCls& http) {
    EXPECT_TRUE(std::filesystem::is_empty(folder_.Path())) << "half a file";
    EXPECT_EQ(http.Filename(), folder_ / "body");
  };
  const auto setBack = [](HTTPCls& http) {
    EXPECT_FALSE(http.SaveAsFile());
    EXPECT_EQ(http.Filename(), "");
  };
  const auto queryAndRemove = [=](HTTPCls& http) {
    const bool done = query(http);
    return std::filesystem::remove(http.Filename()) && done;
  };
  return {
      Make<HTTPCls>("HTTP by name", prepare("origin.test", "/"), query),
      Make<HTTPCls>("HTTP to a file", toFile, queryAndRemove, fileGone),
      Make<HTTPCls>("HTTP to any file", prepare("127.0.0.1", "/file"), queryAndRemove, setBack),
  };
}

std::vector<Subject> Exceptions::Mail() {
  const auto prepare = [this](auto& mail) {
    mail.Events(&sink_);
    mail.DNSURL(UrlOf(dns_));
    mail.Port(smtp_.Port());
    mail.SenderHostName("me.test");
    mail.ProtocolLevel(pl_standard);
  };
  const auto deliver = [](SMTPCls& smtp) {
    smtp.ReceiverHostName("");
    return smtp.SMTP("from@me.test", "to@you.test", std::string(20'000, 'm') + "\r\n");
  };
  const auto compose = [=](SendMailCls& mail) {
    prepare(mail);
    mail.NewTextMsg("Subject", "from@me.test", "a@you.test, b@you.test", "Text");
  };
  const auto send = [](SendMailCls& mail) {
    return mail.SendMail() && mail.Outcomes().size() == 2;
  };
  const auto outcomes = [](SendMailCls& mail) { EXPECT_EQ(mail.Outcomes().size(), 2u); };
  return {
      Make<SMTPCls>("SMTP", prepare, deliver),
      Make<SendMailCls>("SendMail", compose, send, outcomes),
  };
}

std::vector<Subject> Exceptions::Names() {
  const auto prepare = [this](QueryEnum type) {
    return [=, this](QueryDNSCLS& dns) { PointAt(dns, dns_.Port(), type, "test"); };
  };
  const auto lookup = [](SocketCls& socket) {
    socket.ClearDNSCache();
    return socket.DNSLookup("www.test") == "127.0.0.1";
  };
  return {
      Make<QueryDNSCLS>("QueryDNS", prepare(TYPE_MX),
                        [](QueryDNSCLS& dns) { return dns.QueryDNS() == 0 && dns.CountAN() > 0; }),
      Make<QueryDNSCLS>("QueryZone", prepare(TYPE_AXFR),
                        [](QueryDNSCLS& dns) { return dns.QueryZone() == 0; }),
      Make<SocketCls>(
          "DNSLookup", [this](SocketCls& s) { s.DNSURL(UrlOf(dns_)); }, lookup),
      Make<SocketCls>(
          "the system's resolver", [](SocketCls& s) { s.DNSURL(""); },
          [](SocketCls& s) { return s.DNSLookup(kNoName) == "" && s.DNSLastErr(); }),
  };
}

std::vector<Subject> Exceptions::Others() {
  const auto atServer = [this](QueryTimeCLS& time) {
    time.Server("127.0.0.1");
    time.Port(udpTime_.Port());
  };
  const auto asked = [](UDPCls& udp) {
    std::int32_t error = 0;
    return udp.UDPQuery("question?", error) == "question\0"s && error == 0;
  };
  const auto stay = [](NetBIOSCls& host) {  // nobody answers: it ends by being told to
    const auto inside = std::make_shared<bool>();
    ThisLoop().PostTask([&host, call = std::weak_ptr(inside)] {
      if (!call.expired()) host.StopWaiting();
    });
    std::int32_t error = 0;
    return !host.GetMacAddress(0, "127.201.7.3", "-", error) && error == 0x0B;
  };
  const auto talk = [this](SocketCls& socket) {
    socket.ClearDNSCache();
    std::int32_t error = 0;
    bool done = socket.Connect("proxy.test", proxy_.Port()) &&
                PumpUntil([&] { return socket.State() == sockConnected; });
    done = done && socket.Socks5Prolog(true, false, "there", reader_.Port(), "", "", error) &&
           socket.SendData(std::string(4'000'000, 'd')) == 0;
    socket.Disconnect();
    return done;
  };
  return {
      Make<QueryTimeCLS>("QueryTime", atServer,
                         [](QueryTimeCLS& time) { return time.QueryTime(); }),
      Make<WhoIsCls>(
          "WhoIs", [this](WhoIsCls& who) { who.Port(whois_.Port()); },
          [](WhoIsCls& who) { return who.WhoIs("127.0.0.1", "query"); }),
      Make<UDPCls>(
          "UDPQuery",
          [this](UDPCls& udp) {
            udp.URL("127.0.0.1");
            udp.Port(udpEcho_.Port());
          },
          asked),
      Make<NetBIOSCls>(
          "GetMacAddress", [](NetBIOSCls&) {}, stay),
      Make<SocketCls>(
          "Connect, Socks5Prolog, SendData",
          [this](SocketCls& socket) {
            socket.Events(&sink_);
            socket.DNSURL(UrlOf(dns_));
          },
          talk, [](SocketCls& socket) { socket.Disconnect(); }),
  };
}

std::vector<Subject> Exceptions::Subjects() {
  std::vector<Subject> all;
  for (auto&& some : {Web(), Mail(), Names(), Others()}) {
    all.insert(all.end(), some.begin(), some.end());
  }
  return all;
}

void Exceptions::CutAll(const std::vector<Subject>& subjects) {
  ThisLoop().PumpMessages();
  descriptors_ = OpenDescriptors();
  for (const Subject& subject : subjects) {
    SCOPED_TRACE(subject.name);
    ASSERT_TRUE(subject.run()) << "unhurt";
    trap_.events = 0;
    ASSERT_TRUE(subject.run()) << "unhurt";
    const bool hasEvents = trap_.events > 0;
    for (const auto& [moment, name] :
         {std::pair(Trap::kEvent, "event"), std::pair(Trap::kTask, "task"),
          std::pair(Trap::kTimer, "timer"), std::pair(Trap::kHostPump, "host pump")}) {
      SCOPED_TRACE(name);
      const int times = CutEverywhere(subject, moment);
      EXPECT_TRUE(times > 0 || (moment == Trap::kEvent && !hasEvents));
      ASSERT_FALSE(HasFailure());
    }
    // Who deletes the object before it throws.
    EXPECT_TRUE(Cut(subject, hasEvents ? Trap::kEvent : Trap::kTask, 0, subject.destroy));
    ExpectQuiet();
  }
}

TEST_F(Exceptions, EndABlockingCallAndLeaveItsObjectUsable) { CutAll(Subjects()); }

using EchoExceptions = Exceptions;

TEST_F(EchoExceptions, EndABlockingCallAndLeaveItsObjectUsable) {
  if (!EchoIsPermitted()) GTEST_SKIP() << "the system allows this program no echo";
  const auto watch = [this](ICMPCls& icmp) { icmp.Events(&sink_); };
  CutAll({
      Make<ICMPCls>("PingHost", watch,
                    [](ICMPCls& icmp) { return icmp.PingHost("127.0.0.1") >= 0; }),
      Make<ICMPCls>("TraceRt", watch, [](ICMPCls& icmp) { return icmp.TraceRt("127.0.0.1"); }),
      Make<SocketCls>(
          "IsIPReachable", [](SocketCls&) {},
          [](SocketCls& socket) { return socket.IsIPReachable("127.0.0.1"); }),
  });
}

TEST_F(Exceptions, CaughtInANestedCallLeaveTheOuterOneAlone) {
  std::atomic<bool> asked{false}, over{false};
  http_.On("/slow", [&](const peers::HttpRequest&) {
    for (asked = true; !over;) std::this_thread::yield();
    return HttpServer::Answer("200 OK\r\nContent-Type: text/plain\r\n", "slow");
  });
  peers::DnsServer silent(KeepSilent);
  QueryDNSCLS last;
  PointAt(last, silent.Port());
  HTTPCls outer;
  outer.Events(&sink_);
  outer.URL(http_.Url("/slow"));
  const auto nested = [&] {
    for (const Subject& subject : Subjects()) {
      SCOPED_TRACE(subject.name);
      for (const int passes : {0, 2, 9}) Cut(subject, Trap::kTask, passes);
      EXPECT_TRUE(subject.run());
    }
    over = true;
    trap_.Set(Trap::kEvent, 0);  // the outer one's own event, within the call of another
    EXPECT_TRUE(Throws([&] { last.QueryDNS(); }));
  };
  PostWhen([&] { return asked.load(); }, nested);
  bool timeout = false;
  EXPECT_TRUE(outer.HTTPQuery(timeout).ends_with("slow")) << outer.LastErr();
  EXPECT_TRUE(over);
}

// The line that throws, and which of the recipients are known to have got the message then.
TEST_F(Exceptions, TellWhichRecipientsHaveTheMessage) {
  const std::pair<std::string, bool> cases[] = {
      {"354 ", false}, {"RCPT TO:<b@", false}, {"250 queued", true}, {"QUIT", true}};
  peers::SmtpServer server([](const std::string& command) -> peers::SmtpServer::Answer {
    return command == "." ? "250 queued\r\n" : peers::SmtpServer::Politely(command);
  });
  SendMailCls mail;
  mail.Events(&sink_);
  mail.ProtocolLevel(pl_standard);
  mail.ReceiverHostName("127.0.0.1");
  mail.Port(server.Port());
  for (const auto& [line, accepted] : cases) {
    SCOPED_TRACE(line);
    sink_.onLine = [&, last = line](const std::string& told) {
      if (told.find(last) != told.npos) throw Thrown();
    };
    mail.NewTextMsg("Subject", "me@my.test", "a@you.test, b@you.test", "Text");
    EXPECT_THROW(mail.SendMail(), Thrown);
    ASSERT_EQ(mail.Outcomes().size(), 2u);
    for (const RecipientOutcome& outcome : mail.Outcomes()) {
      EXPECT_EQ(outcome.Accepted, accepted) << outcome.Address;
      EXPECT_EQ(outcome.ResultClass, accepted ? 0 : kPending) << outcome.Address;
    }
  }
}

}  // namespace
}  // namespace netro
