// The defaults that a program notices when it sets nothing: limits of time and size, ports, and the
// DNS servers of the system.
#include <netro/HTTPCls.h>
#include <netro/ICMPCls.h>
#include <netro/LogfileCLS.h>
#include <netro/MailSpool.h>
#include <netro/QueryDNSCLS.h>
#include <netro/QueryTimeCLS.h>
#include <netro/SMTPCls.h>
#include <netro/SendMailCls.h>
#include <netro/SocketCls.h>
#include <netro/UDPCls.h>
#include <netro/WhoIsCls.h>

#include "SystemRoot.h"
#include "TestKit.h"

namespace netro {
namespace {

using Numbers = std::vector<double>;

TEST(Properties, LimitsAndPortsOfAnObjectThatNobodySet) {
  const HTTPCls http;
  EXPECT_EQ(Numbers({1. * http.Port(), 1. * http.TimeOutSeconds(), 1. * http.ProxyPort()}),
            Numbers({80, 30, 0}));
  EXPECT_EQ(http.HTTPToken(), "HTTP/1.1");
  EXPECT_TRUE(http.RemoveChunkHeader());
  const SocketCls socket;
  EXPECT_EQ(socket.SocksTimeout(), 30);
  EXPECT_EQ(socket.SendBufferLimit(), 1'048'576u);
  const UDPCls udp;
  EXPECT_EQ(udp.RetryCount(), 3);
  EXPECT_EQ(udp.RetryPauseMilliSeconds(), 333);
  const QueryDNSCLS dns;
  EXPECT_TRUE(dns.UseUDP() && dns.UseRecursion());
  EXPECT_EQ(Numbers({1. * dns.QueryClass(), 1. * dns.DNSPort(), 1. * dns.QueryID(),
                     1. * dns.RetryCount(), 1. * dns.RetryPauseMilliSeconds(),
                     1. * dns.TotalTimeout(), 1. * static_cast<double>(dns.MaxAnswer())}),
            Numbers({1, 53, 25, 3, 333, 0, 2. * (1 << 30)}));
  EXPECT_EQ(dns.QueryType(), TYPE_A);
  EXPECT_EQ(dns.ReplyCode(), -1);
  const QueryTimeCLS time;
  EXPECT_TRUE(time.UseUDP() && time.SNTPReferenceName());
  EXPECT_EQ(Numbers({1. * time.Port(), 1. * time.Timeout(), 1. * time.SNTPVersion(),
                     1. * time.ProxyPort()}),
            Numbers({123, 30, 3, 1080}));
  const WhoIsCls whois;
  EXPECT_EQ(Numbers({1. * whois.Port(), 1. * whois.Timeout(), 1. * whois.TotalTimeout(),
                     1. * static_cast<double>(whois.MaxAnswer()), 1. * whois.ProxyPort()}),
            Numbers({43, 30, 0, 64 << 20, 1080}));
  const ICMPCls icmp;
  EXPECT_EQ(Numbers({1. * icmp.PingTimeout(), 1. * icmp.PingPacketSize(), 1. * icmp.TRMaxHops(),
                     1. * icmp.TRTimeout(), 1. * icmp.TRPacketSize(), 1. * icmp.TRDelay()}),
            Numbers({5000, 32, 30, 5000, 32, 0}));
  EXPECT_EQ(LogfileCLS().LogFileName(), "logfile.txt");
  EXPECT_EQ(LogfileCLS().BufferSize(), 100);
}

template <class Mail>
void ExpectMailDefaults(bool delivers) {
  const Mail mail;
  EXPECT_EQ(mail.Extensions(), delivers);
  EXPECT_EQ(mail.StrictLines(), delivers);
  EXPECT_EQ(Numbers({1. * mail.Port(), 1. * mail.SMTPProxyTimeout(), 1. * mail.TotalTimeout(),
                     1. * mail.ProxyPort()}),
            Numbers({25, 30, 0, 1080}));
  EXPECT_EQ(mail.ProtocolLevel(), pl_Off);
  EXPECT_EQ(mail.SMTPTimeOutString(), "15:60,20:60,30:60,40:60,50:60,60:20,70:60");
}

TEST(Properties, MailAndItsSpool) {
  ExpectMailDefaults<SMTPCls>(false);
  ExpectMailDefaults<SendMailCls>(true);
  MailSpool spool;
  EXPECT_EQ(spool.LimitSeconds(), 172'800);
  EXPECT_TRUE(spool.Bounces());
  EXPECT_EQ(spool.RetrySeconds(), (std::vector<std::int32_t>{300, 900, 1800, 3600}));
  EXPECT_FALSE(spool.RetrySeconds({}));
  EXPECT_FALSE(spool.RetrySeconds({60, 0}));
  EXPECT_TRUE(spool.RetrySeconds({60}));
  EXPECT_EQ(spool.RetrySeconds(), (std::vector<std::int32_t>{60}));
}

// Found once for each thread.
TEST(Properties, DnsServersAreTheSystems) {
  SystemRoot root;
  root.Put("etc/resolv.conf", "nameserver 127.0.0.1\nnameserver 127.0.0.2\n");
  std::thread([] {
    for (const std::string& servers :
         {SocketCls().DNSURL(), UDPCls().DNSURL(), SMTPCls().DNSURL(), SendMailCls().DNSURL()})
      EXPECT_EQ(servers, "127.0.0.1,127.0.0.2");
    EXPECT_EQ(HTTPCls().DNSURL() + QueryTimeCLS().DNSURL() + ICMPCls().DNSURL(), "");
  }).join();
}

}  // namespace
}  // namespace netro
