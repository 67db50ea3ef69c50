// Every property of every class: its default, and that it can be set and read back.
#include <gtest/gtest.h>
#include <netro/DNSCLS.h>
#include <netro/EchoCls.h>
#include <netro/HTTPCls.h>
#include <netro/ICMPCls.h>
#include <netro/LogfileCLS.h>
#include <netro/NetBIOSCls.h>
#include <netro/QueryDNSCLS.h>
#include <netro/QueryTimeCLS.h>
#include <netro/SMTPCls.h>
#include <netro/SendMailCls.h>
#include <netro/SocketCls.h>
#include <netro/UDPCls.h>
#include <netro/WatchpostCls.h>
#include <netro/WhoIsCls.h>

#include <functional>
#include <string>
#include <thread>
#include <vector>

#include "SystemRoot.h"

namespace netro {
namespace {

// One line of the table: a property, its default, and another value (none for read-only ones).
template <class Object>
struct Row {
  const char* name;
  std::function<bool(Object&)> hasDefault;
  std::function<bool(Object&)> setAndReadBack;
};

template <class Object, class Value>
Row<Object> Settable(const char* name, Value (Object::*get)() const,
                     void (Object::*set)(std::decay_t<Value>), std::decay_t<Value> standard,
                     std::decay_t<Value> other) {
  return {name, [=](Object& object) { return (object.*get)() == standard; },
          [=](Object& object) {
            (object.*set)(other);
            return (object.*get)() == other;
          }};
}

template <class Object, class Value>
Row<Object> ReadOnly(const char* name, Value (Object::*get)() const, std::decay_t<Value> standard) {
  return {name, [=](Object& object) { return (object.*get)() == standard; }, nullptr};
}

template <class Object>
void Walk(const std::vector<Row<Object>>& rows) {
  for (const Row<Object>& row : rows) {
    Object object;
    EXPECT_TRUE(row.hasDefault(object)) << row.name;
    EXPECT_TRUE(!row.setAndReadBack || row.setAndReadBack(object)) << row.name;
  }
}

// The default list of DNS servers is the system's, found once for each thread.
constexpr char kServers[] = "127.0.0.1,127.0.0.2";

template <class Object>
void WalkWithServers(const std::vector<Row<Object>>& rows) {
  SystemRoot root;
  root.Put("etc/resolv.conf", "nameserver 127.0.0.1\nnameserver 127.0.0.2\n");
  std::thread([&] { Walk(rows); }).join();
}

TEST(Properties, SocketCls) {
  using S = SocketCls;
  int something = 0;
  WalkWithServers<S>({
      ReadOnly("SocketHandle", &S::SocketHandle, 0),
      ReadOnly("State", &S::State, sockClosed),
      ReadOnly<S, const std::string&>("LocalIP", &S::LocalIP, ""),
      Settable<S, std::int32_t>("LocalPort", &S::LocalPort, &S::LocalPort, 0, 8080),
      ReadOnly<S, const std::string&>("RemoteIP", &S::RemoteIP, ""),
      ReadOnly("RemotePort", &S::RemotePort, 0),
      ReadOnly("LastSocketErr", &S::LastSocketErr, 0),
      Settable<S, std::int32_t>("SocksTimeout", &S::SocksTimeout, &S::SocksTimeout, 30, 5),
      Settable<S, bool>("UseUDP", &S::UseUDP, &S::UseUDP, false, true),
      Settable<S, bool>("ReuseAddr", &S::ReuseAddr, &S::ReuseAddr, false, true),
      Settable<S, bool>("AllowBroadcast", &S::AllowBroadcast, &S::AllowBroadcast, false, true),
      Settable<S, bool>("EnableBroadcast", &S::EnableBroadcast, &S::EnableBroadcast, false, true),
      Settable<S, bool>("ClosedByClient", &S::ClosedByClient, &S::ClosedByClient, false, true),
      Settable<S, bool>("SocketIsBusy", &S::SocketIsBusy, &S::SocketIsBusy, false, true),
      Settable<S, bool>("NoDelay", &S::NoDelay, &S::NoDelay, false, true),
      Settable<S, std::size_t>("SendBufferLimit", &S::SendBufferLimit, &S::SendBufferLimit,
                               1'048'576, 1),
      ReadOnly<S, std::size_t>("QueuedBytes", &S::QueuedBytes, 0),
      Settable<S, void*>("PageFactory", &S::PageFactory, &S::PageFactory, nullptr, &something),
      ReadOnly("DNSLastErr", &S::DNSLastErr, 0),
      ReadOnly<S, const std::string&>("DNSLastErrMsg", &S::DNSLastErrMsg, ""),
      Settable<S, const std::string&>("DNSURL", &S::DNSURL, &S::DNSURL, kServers, "127.0.0.1:5353"),
  });
}

TEST(Properties, HTTPCls) {
  using H = HTTPCls;
  const auto text = [](const char* name, const std::string& (H::*get)() const,
                       void (H::*set)(std::string), const char* standard) {
    return Settable<H, const std::string&>(name, get, set, standard, "something else");
  };
  const auto flag = [](const char* name, bool (H::*get)() const, void (H::*set)(bool),
                       bool standard) {
    return Settable<H, bool>(name, get, set, standard, !standard);
  };
  Walk<H>({
      text("URL", &H::URL, &H::URL, ""),
      Settable<H, std::int32_t>("Port", &H::Port, &H::Port, 80, 8080),
      Settable<H, QueryTypeEnum>("QueryType", &H::QueryType, &H::QueryType, QueryGet, QueryHeader),
      text("PostData", &H::PostData, &H::PostData, ""),
      text("HTTPToken", &H::HTTPToken, &H::HTTPToken, "HTTP/1.1"),
      text("User", &H::User, &H::User, ""),
      text("Password", &H::Password, &H::Password, ""),
      flag("SendAuthAfterChallenge", &H::SendAuthAfterChallenge, &H::SendAuthAfterChallenge, false),
      flag("StandardDigest", &H::StandardDigest, &H::StandardDigest, false),
      Settable<H, std::int32_t>("TimeOutSeconds", &H::TimeOutSeconds, &H::TimeOutSeconds, 30, 5),
      Settable<H, ProxyTypeEnum>("ProxyType", &H::ProxyType, &H::ProxyType, NoProxy, ProxySocks4),
      text("ProxyURL", &H::ProxyURL, &H::ProxyURL, ""),
      Settable<H, std::int32_t>("ProxyPort", &H::ProxyPort, &H::ProxyPort, 0, 1080),
      text("ProxyUser", &H::ProxyUser, &H::ProxyUser, ""),
      text("ProxyPassword", &H::ProxyPassword, &H::ProxyPassword, ""),
      flag("ProxyUseRemoteDNS", &H::ProxyUseRemoteDNS, &H::ProxyUseRemoteDNS, false),
      text("DNSURL", &H::DNSURL, &H::DNSURL, ""),
      flag("SaveAsFile", &H::SaveAsFile, &H::SaveAsFile, false),
      text("Filename", &H::Filename, &H::Filename, ""),
      flag("RemoveChunkHeader", &H::RemoveChunkHeader, &H::RemoveChunkHeader, true),
      text("ExtraData", &H::ExtraData, &H::ExtraData, ""),
      ReadOnly<H, const std::string&>("ContentType", &H::ContentType, ""),
      ReadOnly("HTTPResult", &H::HTTPResult, 0),
      ReadOnly<H, const std::string&>("HTTPResultMsg", &H::HTTPResultMsg, ""),
      ReadOnly("HeaderLen", &H::HeaderLen, 0),
      ReadOnly("BodyLen", &H::BodyLen, 0.0),
      ReadOnly("ReceivedBytes", &H::ReceivedBytes, 0.0),
      ReadOnly("LastErr", &H::LastErr, 0),
      ReadOnly("WaitForConnect", &H::WaitForConnect, false),
      ReadOnly("WaitForData", &H::WaitForData, false),
      ReadOnly("WaitForSocksData", &H::WaitForSocksData, false),
      ReadOnly("CloseMeansEnd", &H::CloseMeansEnd, false),
      ReadOnly("FirstChunk", &H::FirstChunk, false),
      ReadOnly("WaitForDataLen", &H::WaitForDataLen, 0.0),
      ReadOnly("TransferChunkOffset", &H::TransferChunkOffset, 0.0),
  });
}

TEST(Properties, UDPCls) {
  using U = UDPCls;
  WalkWithServers<U>({
      Settable<U, const std::string&>("URL", &U::URL, &U::URL, "", "127.0.0.1"),
      Settable<U, std::int32_t>("Port", &U::Port, &U::Port, 0, 53),
      Settable<U, std::int32_t>("RetryCount", &U::RetryCount, &U::RetryCount, 3, 1),
      Settable<U, std::int32_t>("RetryPauseMilliSeconds", &U::RetryPauseMilliSeconds,
                                &U::RetryPauseMilliSeconds, 333, 10),
      Settable<U, bool>("AllowBroadcast", &U::AllowBroadcast, &U::AllowBroadcast, false, true),
      Settable<U, bool>("ReuseAddr", &U::ReuseAddr, &U::ReuseAddr, false, true),
      Settable<U, const std::string&>("DNSURL", &U::DNSURL, &U::DNSURL, kServers, "127.0.0.1:5353"),
  });
}

TEST(Properties, QueryDNSCLS) {
  using Q = QueryDNSCLS;
  const auto text = [](const char* name, const std::string& (Q::*get)() const,
                       void (Q::*set)(std::string)) {
    return Settable<Q, const std::string&>(name, get, set, "", "something else");
  };
  const auto flag = [](const char* name, bool (Q::*get)() const, void (Q::*set)(bool),
                       bool standard) {
    return Settable<Q, bool>(name, get, set, standard, !standard);
  };
  const auto number = [](const char* name, std::int32_t (Q::*get)() const,
                         void (Q::*set)(std::int32_t), std::int32_t standard) {
    return Settable<Q, std::int32_t>(name, get, set, standard, 1080);
  };
  Walk<Q>({
      text("Domain", &Q::Domain, &Q::Domain),
      Settable<Q, QueryEnum>("QueryType", &Q::QueryType, &Q::QueryType, TYPE_A, TYPE_MX),
      Settable<Q, std::int16_t>("QueryClass", &Q::QueryClass, &Q::QueryClass, 1, 255),
      text("DNSServer", &Q::DNSServer, &Q::DNSServer),
      number("DNSPort", &Q::DNSPort, &Q::DNSPort, 53),
      flag("UseUDP", &Q::UseUDP, &Q::UseUDP, true),
      flag("UseRecursion", &Q::UseRecursion, &Q::UseRecursion, true),
      flag("EscapeNames", &Q::EscapeNames, &Q::EscapeNames, false),
      number("QueryID", &Q::QueryID, &Q::QueryID, 25),
      number("UDPSize", &Q::UDPSize, &Q::UDPSize, 0),
      flag("DNSSECOK", &Q::DNSSECOK, &Q::DNSSECOK, false),
      flag("FollowTruncation", &Q::FollowTruncation, &Q::FollowTruncation, false),
      number("RetryCount", &Q::RetryCount, &Q::RetryCount, 3),
      number("RetryPauseMilliSeconds", &Q::RetryPauseMilliSeconds, &Q::RetryPauseMilliSeconds, 333),
      text("RootDomain", &Q::RootDomain, &Q::RootDomain),
      Settable<Q, DNSProxyTypeEnum>("ProxyType", &Q::ProxyType, &Q::ProxyType, NoDNSProxy,
                                    DNSProxySocks5Auth),
      text("ProxyURL", &Q::ProxyURL, &Q::ProxyURL),
      number("ProxyPort", &Q::ProxyPort, &Q::ProxyPort, 0),
      text("ProxyUser", &Q::ProxyUser, &Q::ProxyUser),
      text("ProxyPassword", &Q::ProxyPassword, &Q::ProxyPassword),
      flag("ProxyUseRemoteDNS", &Q::ProxyUseRemoteDNS, &Q::ProxyUseRemoteDNS, false),
      ReadOnly("CountAN", &Q::CountAN, 0),
      ReadOnly("CountNS", &Q::CountNS, 0),
      ReadOnly("CountAR", &Q::CountAR, 0),
      ReadOnly("Count", &Q::Count, 0),
      ReadOnly("CountAll", &Q::CountAll, 0),
      ReadOnly("IsAuthoritativeAnswer", &Q::IsAuthoritativeAnswer, false),
      ReadOnly("IsRecursionAvailable", &Q::IsRecursionAvailable, false),
      ReadOnly("IsTruncated", &Q::IsTruncated, false),
      ReadOnly("IsOverTCP", &Q::IsOverTCP, false),
      ReadOnly("ReplyCode", &Q::ReplyCode, -1),
      ReadOnly<Q, const EDNSCLS*>("EDNS", &Q::EDNS, nullptr),
      ReadOnly("LastErr", &Q::LastErr, 0),
      ReadOnly<Q, const std::string&>("LastErrMsg", &Q::LastErrMsg, ""),
      ReadOnly<Q, const std::string&>("OutBuffer", &Q::OutBuffer, ""),
      ReadOnly<Q, const std::string&>("InBuffer", &Q::InBuffer, ""),
  });
}

TEST(Properties, DNSCLS) {
  using D = DNSCLS;
  const auto text = [](const char* name, const std::string& (D::*get)() const,
                       void (D::*set)(std::string)) {
    return Settable<D, const std::string&>(name, get, set, "", "something else");
  };
  const auto number = [](const char* name, std::int32_t (D::*get)() const,
                         void (D::*set)(std::int32_t)) {
    return Settable<D, std::int32_t>(name, get, set, 0, -123456789);
  };
  const auto real = [](const char* name, double (D::*get)() const, void (D::*set)(double)) {
    return Settable<D, double>(name, get, set, 0, 4294967295.0);
  };
  Walk<D>({
      text("Query", &D::Query, &D::Query),
      number("DataType", &D::DataType, &D::DataType),
      text("Data", &D::Data, &D::Data),
      real("TTL", &D::TTL, &D::TTL),
      number("StringCount", &D::StringCount, &D::StringCount),
      Settable<D, std::int16_t>("Pref", &D::Pref, &D::Pref, 0, -1),
      Settable<D, std::int16_t>("SVR_Pref", &D::SVR_Pref, &D::SVR_Pref, 0, -1),
      number("SVR_Weight", &D::SVR_Weight, &D::SVR_Weight),
      number("SVR_Port", &D::SVR_Port, &D::SVR_Port),
      text("SOA_RName", &D::SOA_RName, &D::SOA_RName),
      text("SOA_Mailbox", &D::SOA_Mailbox, &D::SOA_Mailbox),
      real("SOA_Serial", &D::SOA_Serial, &D::SOA_Serial),
      number("SOA_Refresh", &D::SOA_Refresh, &D::SOA_Refresh),
      number("SOA_Retry", &D::SOA_Retry, &D::SOA_Retry),
      number("SOA_Expire", &D::SOA_Expire, &D::SOA_Expire),
      number("SOA_Minimum", &D::SOA_Minimum, &D::SOA_Minimum),
      number("LOC_SIZE", &D::LOC_SIZE, &D::LOC_SIZE),
      number("LOC_HORIZ_PRE", &D::LOC_HORIZ_PRE, &D::LOC_HORIZ_PRE),
      number("LOC_VERT_PRE", &D::LOC_VERT_PRE, &D::LOC_VERT_PRE),
      real("LOC_LATITUDE", &D::LOC_LATITUDE, &D::LOC_LATITUDE),
      text("LOC_LATITUDE_COORD", &D::LOC_LATITUDE_COORD, &D::LOC_LATITUDE_COORD),
      real("LOC_LONGITUDE", &D::LOC_LONGITUDE, &D::LOC_LONGITUDE),
      text("LOC_LONGITUDE_COORD", &D::LOC_LONGITUDE_COORD, &D::LOC_LONGITUDE_COORD),
      number("LOC_ALTITUDE", &D::LOC_ALTITUDE, &D::LOC_ALTITUDE),
  });
}

TEST(Properties, QueryTimeCLS) {
  using T = QueryTimeCLS;
  const auto text = [](const char* name, const std::string& (T::*get)() const,
                       void (T::*set)(std::string)) {
    return Settable<T, const std::string&>(name, get, set, "", "something else");
  };
  const auto number = [](const char* name, std::int32_t (T::*get)() const,
                         void (T::*set)(std::int32_t), std::int32_t standard) {
    return Settable<T, std::int32_t>(name, get, set, standard, 4);
  };
  Walk<T>({
      text("Server", &T::Server, &T::Server),
      number("Port", &T::Port, &T::Port, 123),
      Settable<T, std::int16_t>("Timeout", &T::Timeout, &T::Timeout, 30, 5),
      Settable<T, bool>("UseUDP", &T::UseUDP, &T::UseUDP, true, false),
      number("SNTPVersion", &T::SNTPVersion, &T::SNTPVersion, 3),
      text("DNSURL", &T::DNSURL, &T::DNSURL),
      Settable<T, TimeProxyTypeEnum>("ProxyType", &T::ProxyType, &T::ProxyType, NoTimeProxy,
                                     TimeProxySocks5Auth),
      text("ProxyURL", &T::ProxyURL, &T::ProxyURL),
      number("ProxyPort", &T::ProxyPort, &T::ProxyPort, 1080),
      text("ProxyUser", &T::ProxyUser, &T::ProxyUser),
      text("ProxyPassword", &T::ProxyPassword, &T::ProxyPassword),
      Settable<T, bool>("ProxyUseRemoteDNS", &T::ProxyUseRemoteDNS, &T::ProxyUseRemoteDNS, false,
                        true),
      ReadOnly("DateTime", &T::DateTime, 0.0),
      ReadOnly("SNTPDifference", &T::SNTPDifference, 0.0),
      ReadOnly("SNTPRoundTripDelay", &T::SNTPRoundTripDelay, 0.0),
      ReadOnly("SNTPRootDelay", &T::SNTPRootDelay, 0.0),
      ReadOnly("SNTPRootDispersion", &T::SNTPRootDispersion, 0.0),
      ReadOnly("SNTPPrecision", &T::SNTPPrecision, 0.0),
      ReadOnly("SNTPPollInterval", &T::SNTPPollInterval, 0.0),
      ReadOnly("SNTPStratum", &T::SNTPStratum, SNTPStratumEnum::Unspecified),
      ReadOnly("SNTPMode", &T::SNTPMode, SNTPModeEnum::Unknown),
      ReadOnly("SNTPLeapIndicator", &T::SNTPLeapIndicator, SNTPLeapIndicatorEnum::NoWarning),
      ReadOnly<T, const std::string&>("SNTPreferenceID", &T::SNTPreferenceID, ""),
      ReadOnly<T, const std::string&>("SNTPPreferenceID", &T::SNTPPreferenceID, ""),
      ReadOnly("SNTPOffset", &T::SNTPOffset, 0.0),
      ReadOnly("SNTPDelay", &T::SNTPDelay, 0.0),
      ReadOnly<T, const std::string&>("SNTPKissCode", &T::SNTPKissCode, ""),
      ReadOnly("LastErr", &T::LastErr, 0),
      ReadOnly<T, const std::string&>("LastErrMsg", &T::LastErrMsg, ""),
  });
}

TEST(Properties, WhoIsCls) {
  using W = WhoIsCls;
  const auto text = [](const char* name, const std::string& (W::*get)() const,
                       void (W::*set)(std::string)) {
    return Settable<W, const std::string&>(name, get, set, "", "something else");
  };
  Walk<W>({
      Settable<W, std::int32_t>("Timeout", &W::Timeout, &W::Timeout, 30, 5),
      Settable<W, std::int32_t>("Port", &W::Port, &W::Port, 43, 4343),
      Settable<W, WhoIsProxyTypeEnum>("ProxyType", &W::ProxyType, &W::ProxyType, NoWhoIsProxy,
                                      WhoIsProxySocks5Auth),
      text("ProxyURL", &W::ProxyURL, &W::ProxyURL),
      Settable<W, std::int32_t>("ProxyPort", &W::ProxyPort, &W::ProxyPort, 1080, 9050),
      text("ProxyUser", &W::ProxyUser, &W::ProxyUser),
      text("ProxyPassword", &W::ProxyPassword, &W::ProxyPassword),
      Settable<W, bool>("ProxyUseRemoteDNS", &W::ProxyUseRemoteDNS, &W::ProxyUseRemoteDNS, false,
                        true),
      text("DNSURL", &W::DNSURL, &W::DNSURL),
      ReadOnly<W, const std::string&>("Result", &W::Result, ""),
      ReadOnly("LastErr", &W::LastErr, 0),
      ReadOnly<W, const std::string&>("LastErrMsg", &W::LastErrMsg, ""),
  });
}

// What SMTPCls and SendMailCls share.
template <class M>
std::vector<Row<M>> MailRows() {
  const auto text = [](const char* name, const std::string& (M::*get)() const,
                       void (M::*set)(std::string), const char* standard = "") {
    return Settable<M, const std::string&>(name, get, set, standard, "something else");
  };
  const auto number = [](const char* name, std::int32_t (M::*get)() const,
                         void (M::*set)(std::int32_t), std::int32_t standard) {
    return Settable<M, std::int32_t>(name, get, set, standard, 4);
  };
  return {
      text("SenderHostName", &M::SenderHostName, &M::SenderHostName),
      text("ReceiverHostName", &M::ReceiverHostName, &M::ReceiverHostName),
      number("Port", &M::Port, &M::Port, 25),
      Settable<M, bool>("Simulation", &M::Simulation, &M::Simulation, false, true),
      Settable<M, ProtocolLevelEnum>("ProtocolLevel", &M::ProtocolLevel, &M::ProtocolLevel, pl_Off,
                                     pl_OnlyErrors),
      text("SMTPSuccess", &M::SMTPSuccess, &M::SMTPSuccess,
           "10:0,15:220,20:220,20:250,30:250,40:250,50:354,50:250,60:250,70:221,70:250,70:550"),
      text("SMTPTimeOutString", &M::SMTPTimeOutString, &M::SMTPTimeOutString,
           "15:60,20:60,30:60,40:60,50:60,60:20,70:60"),
      text("DNSURL", &M::DNSURL, &M::DNSURL, kServers),
      text("DNSServer", &M::DNSServer, &M::DNSServer),
      number("SMTPProxyTimeout", &M::SMTPProxyTimeout, &M::SMTPProxyTimeout, 30),
      Settable<M, SMTPProxyTypeEnum>("ProxyType", &M::ProxyType, &M::ProxyType, NoSMTPProxy,
                                     SMTPProxySocks5Auth),
      text("ProxyURL", &M::ProxyURL, &M::ProxyURL),
      number("ProxyPort", &M::ProxyPort, &M::ProxyPort, 1080),
      text("ProxyUser", &M::ProxyUser, &M::ProxyUser),
      text("ProxyPassword", &M::ProxyPassword, &M::ProxyPassword),
      Settable<M, bool>("ProxyUseRemoteDNS", &M::ProxyUseRemoteDNS, &M::ProxyUseRemoteDNS, false,
                        true),
  };
}

TEST(Properties, SMTPCls) {
  using M = SMTPCls;
  WalkWithServers<M>(MailRows<M>());
  Walk<M>({
      Settable<M, const std::string&>("LastBuffer", &M::LastBuffer, &M::LastBuffer, "", "250 ok"),
      ReadOnly<M, std::string>("Protocol", &M::Protocol, ""),
      ReadOnly("StepID", &M::StepID, 0),
      ReadOnly("Result", &M::Result, 0),
      ReadOnly<M, const std::string&>("ResultMessage", &M::ResultMessage, ""),
  });
}

TEST(Properties, SendMailCls) {
  using M = SendMailCls;
  const auto text = [](const char* name, const std::string& (M::*get)() const,
                       void (M::*set)(std::string)) {
    return Settable<M, const std::string&>(name, get, set, "", "something else");
  };
  WalkWithServers<M>(MailRows<M>());
  Walk<M>({
      Settable<M, bool>("AddBCCToMime", &M::AddBCCToMime, &M::AddBCCToMime, false, true),
      text("MessageID", &M::MessageID, &M::MessageID),
      text("TLDs", &M::TLDs, &M::TLDs),
      ReadOnly<M, const std::string&>("MimeBuffer", &M::MimeBuffer, ""),
      ReadOnly("Result", &M::Result, 0),
      ReadOnly<M, const std::string&>("ResultMessage", &M::ResultMessage, ""),
  });
  EXPECT_TRUE(M().Outcomes().empty());
}

TEST(Properties, ICMPCls) {
  using I = ICMPCls;
  const auto number = [](const char* name, std::int32_t (I::*get)() const,
                         void (I::*set)(std::int32_t), std::int32_t standard) {
    return Settable<I, std::int32_t>(name, get, set, standard, 4);
  };
  Walk<I>({
      number("PingTimeout", &I::PingTimeout, &I::PingTimeout, 5000),
      number("PingPacketSize", &I::PingPacketSize, &I::PingPacketSize, 32),
      number("TRMaxHops", &I::TRMaxHops, &I::TRMaxHops, 30),
      number("TRTimeout", &I::TRTimeout, &I::TRTimeout, 5000),
      number("TRPacketSize", &I::TRPacketSize, &I::TRPacketSize, 32),
      number("TRDelay", &I::TRDelay, &I::TRDelay, 0),
      Settable<I, const std::string&>("DNSURL", &I::DNSURL, &I::DNSURL, "", "something else"),
      ReadOnly("TRHopCount", &I::TRHopCount, 0),
      ReadOnly("TRSumRoundTripTime", &I::TRSumRoundTripTime, 0),
      ReadOnly("TRCanceled", &I::TRCanceled, false),
      ReadOnly("LastErr", &I::LastErr, 0),
      ReadOnly<I, const std::string&>("LastErrMsg", &I::LastErrMsg, ""),
      ReadOnly("DNSLastErr", &I::DNSLastErr, 0),
      ReadOnly<I, const std::string&>("DNSLastErrMsg", &I::DNSLastErrMsg, ""),
  });
}

TEST(Properties, EchoCls) {
  using E = EchoCls;
  Walk<E>({
      ReadOnly("Pending", &E::Pending, 0),
      ReadOnly("SocketUsed", &E::SocketUsed, EchoSocketNone),
      ReadOnly("LastErr", &E::LastErr, 0),
      ReadOnly<E, const std::string&>("LastErrMsg", &E::LastErrMsg, ""),
  });
}

TEST(Properties, NetBIOSCls) {
  using N = NetBIOSCls;
  Walk<N>({
      Settable<N, bool>("Logging", &N::Logging, &N::Logging, false, true),
      ReadOnly<N, const std::string&>("MacAddress", &N::MacAddress, ""),
  });
  for (const auto byte : {&N::RevMajor, &N::AdapterType, &N::RevMinor}) EXPECT_EQ((N().*byte)(), 0);
  for (const auto number : {&N::XmitSuccess, &N::RecvSuccess}) EXPECT_EQ((N().*number)(), 0);
  for (const auto number :
       {&N::Duration, &N::FrmrRecv, &N::FrmrXmit, &N::IframeRecvErr, &N::XmitAborts,
        &N::IframeXmitErr, &N::RecvBuffUnavail, &N::T1Timeouts, &N::TiTimeouts, &N::FreeNcbs,
        &N::MaxCfgNcbs, &N::MaxNcbs, &N::XmitBufUnavail, &N::MaxDgramSize, &N::PendingSess,
        &N::MaxCfgSess, &N::MaxSess, &N::MaxSessPktSize, &N::NameCount})
    EXPECT_EQ((N().*number)(), 0);
}

TEST(Properties, LogfileCLS) {
  using L = LogfileCLS;
  Walk<L>({
      Settable<L, const std::string&>("LogFileName", &L::LogFileName, &L::LogFileName,
                                      "logfile.txt", "other.csv"),
      Settable<L, std::int32_t>("BufferSize", &L::BufferSize, &L::BufferSize, 100, 1),
  });
}

TEST(Properties, WatchpostCls) {
  using W = WatchpostCls;
  Walk<W>({
      Settable<W, const std::string&>("SettingsName", &W::SettingsName, &W::SettingsName, "",
                                      "watch.ini"),
      ReadOnly("LastErr", &W::LastErr, 0),
      ReadOnly<W, const std::string&>("LastErrMsg", &W::LastErrMsg, ""),
      ReadOnly("GetStatus", &W::GetStatus, 0),
      ReadOnly("HostCount", &W::HostCount, 0),
      ReadOnly("MailsWaiting", &W::MailsWaiting, 0),
  });
}

TEST(Properties, EnumeratorsHaveTheirValues) {
  EXPECT_EQ(sockClosed, 1);
  EXPECT_EQ(sockConnected, 4);
  EXPECT_EQ(QueryHeader, 2);
  EXPECT_EQ(ProxyPipe, 6);
  EXPECT_EQ(SMTPProxySocks5Auth, 3);
  EXPECT_EQ(pl_OnlyErrors, 3);
  EXPECT_EQ(DNSProxySocks5Auth, 3);
  EXPECT_EQ(TimeProxySocks5Auth, 3);
  EXPECT_EQ(WhoIsProxySocks5Auth, 3);
  EXPECT_EQ(static_cast<int>(SNTPLeapIndicatorEnum::Alarm), 3);
  EXPECT_EQ(static_cast<int>(SNTPModeEnum::SymmetricActive), 0);
  EXPECT_EQ(static_cast<int>(SNTPModeEnum::Unknown), 5);
  EXPECT_EQ(static_cast<int>(SNTPStratumEnum::reserved), 3);
  EXPECT_EQ(EchoSocketDatagram, 1);
  EXPECT_EQ(EchoSocketRaw, 2);
  EXPECT_EQ(TYPE_AAAA, 28);
  EXPECT_EQ(TYPE_ATMA, 34);
  EXPECT_EQ(TYPE_IXFR, 251);
  EXPECT_EQ(TYPE_ALL, 255);
}

}  // namespace
}  // namespace netro
