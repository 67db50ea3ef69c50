// Blocking calls inside tasks: cancelled, met by a deadline, deleted, many at once.
#include <netro/HTTPCls.h>
#include <netro/NetBIOSCls.h>
#include <netro/QueryDNSCLS.h>
#include <netro/QueryTimeCLS.h>
#include <netro/SMTPCls.h>
#include <netro/UDPCls.h>
#include <netro/WhoIsCls.h>
#include <netro/testkit/DatagramServer.h>

#include <csignal>
#include <random>

#include "SilentHost.h"
#include "SocketTestKit.h"
#include "tests/SystemKit.h"
#include "web/HttpPool.h"

namespace netro {
namespace {

using std::chrono::steady_clock;

MessageLoop& ThisLoop() { return MessageLoop::ForThisThread(); }

struct Call {
  const char* name;
  std::function<std::int32_t(const SilentHost&)> make;  // a call that waits; its result
  std::int32_t cancelled = 9999;
  std::int32_t timedOut = 10002;
};

std::int32_t Fetch(const SilentHost& host) {
  HTTPCls http;
  http.URL(host.Url());
  bool timeout = false;
  http.HTTPQuery(timeout);
  return http.LastErr();
}

std::int32_t Ask(const SilentHost& host, bool udp) {
  QueryDNSCLS dns;
  dns.DNSServer("127.0.0.1");
  dns.DNSPort(udp ? host.UdpPort() : host.TcpPort());
  dns.Domain("www.test");
  dns.UseUDP(udp);
  return dns.QueryDNS();
}

std::int32_t LookUp(const SilentHost& host) {
  SocketCls socket;
  socket.DNSURL("127.0.0.1:" + std::to_string(host.UdpPort()));
  socket.DNSLookup("silent.test");
  return socket.DNSLastErr();
}

std::int32_t ConnectByName(const SilentHost& host) {
  SocketCls socket;
  socket.DNSURL("127.0.0.1:" + std::to_string(host.UdpPort()));
  EXPECT_FALSE(socket.Connect("silent.test", 80));
  return socket.LastSocketErr();
}

std::int32_t Mail(const SilentHost& host) {
  SMTPCls smtp;
  smtp.ReceiverHostName("127.0.0.1");
  smtp.Port(host.TcpPort());
  EXPECT_FALSE(smtp.SMTP("a@test", "b@test", "text"));
  return smtp.Result();
}

std::int32_t Time(const SilentHost& host) {
  QueryTimeCLS time;
  time.Server("127.0.0.1");
  time.Port(host.UdpPort());
  EXPECT_FALSE(time.QueryTime());
  return time.LastErr();
}

std::int32_t AskUdp(const SilentHost& host) {
  UDPCls udp;
  udp.URL("127.0.0.1");
  udp.Port(host.UdpPort());
  udp.RetryCount(1'000);
  std::int32_t error = 0;
  udp.UDPQuery("hello", error);
  return error;
}

std::int32_t AskWhoIs(const SilentHost& host) {
  WhoIsCls whois;
  EXPECT_FALSE(whois.WhoIs("127.0.0.1:" + std::to_string(host.TcpPort()), "name"));
  return whois.LastErr();
}

int g_opened = 0;

// The outcome of a connect is an event, which a task waits for like any other program.
bool Open(SocketCls& socket, int port) {
  if (!socket.Connect("127.0.0.1", port)) return false;
  while (socket.State() == sockConnecting) ThisLoop().PumpMessages();
  ++g_opened;
  return socket.State() == sockConnected;
}

std::int32_t SendMuch(const SilentHost& host) {
  SocketCls socket;
  if (!Open(socket, host.TcpPort())) return socket.LastSocketErr();
  return socket.SendData(std::string(std::size_t{16} << 20, 'x'));
}

std::int32_t Tunnel(const SilentHost& host) {
  SocketCls socket;
  std::int32_t error = 0;
  if (!Open(socket, host.TcpPort())) return socket.LastSocketErr();
  EXPECT_FALSE(socket.Socks5Prolog(true, false, "host", 80, "", "", error));
  return error;
}

// The name service's port is not everybody's; without it the case says nothing.
std::int32_t AskNetBios(const SilentHost&) {
  static const auto silent = testkit::ServeOnOwnAddress(
      [](const std::string&) { return testkit::DatagramServer::Replies(); }, 137);
  if (!silent) {
    const std::int32_t ended = ThisLoop().Sleep(seconds(60));
    return ended == 10002 ? 0x05 : 0x0B;
  }
  NetBIOSCls netBios;
  std::int32_t error = 0;
  EXPECT_FALSE(netBios.GetMacAddress(0, silent->Ip(), "-", error));
  return error;
}

const Call kCalls[] = {
    {"HTTPQuery", Fetch},
    {"QueryDNS over UDP", [](const SilentHost& host) { return Ask(host, true); }},
    {"QueryDNS over TCP", [](const SilentHost& host) { return Ask(host, false); }},
    {"DNSLookup", LookUp},
    {"Connect", ConnectByName},
    {"SMTP", Mail, 9999, 99},
    {"QueryTime", Time},
    {"UDPQuery", AskUdp},
    {"WhoIs", AskWhoIs},
    {"SendData", SendMuch},
    {"Socks5Prolog", Tunnel},
    {"GetMacAddress", AskNetBios, 0x0B, 0x05},
    {"Sleep", [](const SilentHost&) { return ThisLoop().Sleep(seconds(60)); }},
    {"Wait",
     [](const SilentHost&) {
       const Task other = ThisLoop().StartTask([] { ThisLoop().Sleep(seconds(60)); });
       const std::int32_t error = other.Wait();
       other.Cancel();
       return error;
     }},
};

// Each call is made twice: the second one must end at once, without waiting.
void ExpectEnd(const Call& call, std::int32_t expected, const std::function<void(Task)>& end) {
  SCOPED_TRACE(call.name);
  const SilentHost host;
  std::vector<std::int32_t> results;
  const auto work = [&] {
    results.push_back(call.make(host));
    results.push_back(call.make(host));
  };
  const Task task = ThisLoop().StartTask(work);
  const auto start = steady_clock::now();
  end(task);
  EXPECT_EQ(task.Wait(), 0);
  EXPECT_LT(steady_clock::now() - start, seconds(5));  // no class gives up by itself that soon
  EXPECT_EQ(results, (std::vector<std::int32_t>{expected, expected}));
}

TEST(TaskCalls, CancelEndsTheCallAndAllLaterOnes) {
  for (const Call& call : kCalls) {
    ExpectEnd(call, call.cancelled, [](const Task& task) {
      ThisLoop().Sleep(milliseconds(20));
      std::thread([task] { task.Cancel(); }).join();
    });
  }
}

TEST(TaskCalls, DeadlineEndsThemAsTheirOwnTimeOutDoes) {
  for (const Call& call : kCalls)
    ExpectEnd(call, call.timedOut, [](const Task& task) { task.Deadline(milliseconds(20)); });
}

TEST(TaskCalls, KillEndsThemAll) {
  const SilentHost host;
  g_opened = 0;
  std::vector<Task> tasks;
  for (const Call& call : kCalls) {
    tasks.push_back(ThisLoop().StartTask([&] {
      const std::int32_t result = call.make(host);
      // The task that is waited for is killed as well.
      const bool over = std::string(call.name) == "Wait" && result == 0;
      EXPECT_TRUE(result == call.cancelled || over) << call.name << ' ' << result;
    }));
  }
  ASSERT_TRUE(PumpUntil([] { return g_opened == 2; })) << "the others wait from their first step on";
  ThisLoop().Sleep(milliseconds(50));
  SocketCls().Kill();
  for (const Task& task : tasks) EXPECT_EQ(task.Wait(), 0);
}

Task g_interrupted;

// Each from outside while the task sleeps; another one goes on.
TEST(TaskCalls, EndInEveryOtherWay) {
  const SilentHost host;
  const Task other = ThisLoop().StartTask([&] { Fetch(host); });
  auto http = std::make_unique<HTTPCls>();
  const std::tuple<const char*, std::function<void(const Task&)>, std::int32_t> kCases[] = {
      {"a deadline comes nearer",
       [](const Task& task) {
         task.Deadline(std::chrono::hours(1));
         ThisLoop().Sleep(milliseconds(10));
         task.Deadline(milliseconds(-5));
       },
       10002},
      {"StopWaiting", [&](const Task&) { std::thread([&] { http->StopWaiting(); }).join(); }, 9999},
      {"a signal handler",
       [](const Task& task) {
         g_interrupted = task;
         const auto before = std::signal(SIGTERM, [](int) { g_interrupted.Cancel(); });
         std::raise(SIGTERM);
         std::signal(SIGTERM, before);
         g_interrupted = {};
       },
       9999},
      {"deletion", [&](const Task&) { http.reset(); }, 9999},
  };
  for (const auto& [name, end, result] : kCases) {
    SCOPED_TRACE(name);
    http->URL(host.Url());
    const Task task = ThisLoop().StartTask([call = http.get()] {
      bool timeout = false;
      call->HTTPQuery(timeout);
    });
    ThisLoop().Sleep(milliseconds(10));
    end(task);
    EXPECT_EQ(task.Wait(), 0);
    if (http) {
      EXPECT_EQ(http->LastErr(), result);
    }
    EXPECT_FALSE(other.Done());
  }
  other.Cancel();
  other.Wait();
}

TEST(TaskCalls, ThousandCancelledAtRandomMoments) {
  const SilentHost host;
  std::mt19937 random(12);  // NOLINT: the same each time
  std::vector<Task> tasks;
  std::size_t ended = 0;
  for (std::size_t i = 0; i < 1'000; ++i) {
    const Call& call = kCalls[i % std::size(kCalls)];
    tasks.push_back(ThisLoop().StartTask([&] {
      call.make(host);  // on a slow machine it may have ended by itself
      ++ended;
    }));
    if (random() % 3 == 0) tasks[random() % tasks.size()].Cancel();
    if (random() % 4 == 0) ThisLoop().PumpMessages();
  }
  std::shuffle(tasks.begin(), tasks.end(), random);
  std::thread canceller([&] {
    for (const Task& task : tasks) task.Cancel();
  });
  for (const Task& task : tasks) EXPECT_EQ(task.Wait(), 0);
  canceller.join();
  EXPECT_EQ(ended, tasks.size());
}

// Whoever gets none is told so, and nobody waits for ever.
TEST(TaskCalls, FiveThousandWithDescriptorsForAThousand) {
  const SilentHost host;
  // A first one as long as there are descriptors: UndefinedBehaviorSanitizer needs two for each
  // class that it has not met yet.
  const Task first = ThisLoop().StartTask([&] { Fetch(host); });
  ThisLoop().Sleep(milliseconds(50));
  first.Cancel();
  first.Wait();
  HttpPool::ForThread()->Clear();  // as who gets no descriptor does
  auto few = WithDescriptors(1'000);
  std::vector<Task> tasks;
  int cancelled = 0;
  int refused = 0;
  for (int i = 0; i < 5'000; ++i) {
    const Task task = ThisLoop().StartTask([&] {
      const std::int32_t error = Fetch(host);
      ++(error == 9999 ? cancelled : refused);
      EXPECT_TRUE(error == 9999 || error == 10024) << error;
    });
    ASSERT_EQ(task.Error(), 0);
    tasks.push_back(task);
  }
  while (refused == 0) ThisLoop().PumpMessages();
  for (const Task& task : tasks) task.Cancel();
  for (const Task& task : tasks) task.Wait();
  few.reset();
  EXPECT_GT(cancelled, 0);
  EXPECT_EQ(cancelled + refused, 5'000);
}

}  // namespace
}  // namespace netro
