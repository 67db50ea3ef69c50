// Every property of every class: its default, and that it can be set and read back.
#include <gtest/gtest.h>
#include <netro/HTTPCls.h>
#include <netro/SocketCls.h>
#include <netro/UDPCls.h>

#include <functional>
#include <string>
#include <vector>

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

TEST(Properties, SocketCls) {
  using S = SocketCls;
  int something = 0;
  Walk<S>({
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
      Settable<S, void*>("PageFactory", &S::PageFactory, &S::PageFactory, nullptr, &something),
      ReadOnly("DNSLastErr", &S::DNSLastErr, 0),
      ReadOnly<S, const std::string&>("DNSLastErrMsg", &S::DNSLastErrMsg, ""),
      Settable<S, const std::string&>("DNSURL", &S::DNSURL, &S::DNSURL, "", "127.0.0.1:5353"),
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
  Walk<U>({
      Settable<U, const std::string&>("URL", &U::URL, &U::URL, "", "127.0.0.1"),
      Settable<U, std::int32_t>("Port", &U::Port, &U::Port, 0, 53),
      Settable<U, std::int32_t>("RetryCount", &U::RetryCount, &U::RetryCount, 3, 1),
      Settable<U, std::int32_t>("RetryPauseMilliSeconds", &U::RetryPauseMilliSeconds,
                                &U::RetryPauseMilliSeconds, 333, 10),
      Settable<U, bool>("AllowBroadcast", &U::AllowBroadcast, &U::AllowBroadcast, false, true),
      Settable<U, bool>("ReuseAddr", &U::ReuseAddr, &U::ReuseAddr, false, true),
      Settable<U, const std::string&>("DNSURL", &U::DNSURL, &U::DNSURL, "", "127.0.0.1:5353"),
  });
}

TEST(Properties, EnumeratorsHaveTheirValues) {
  EXPECT_EQ(sockClosed, 1);
  EXPECT_EQ(sockConnected, 4);
  EXPECT_EQ(QueryHeader, 2);
  EXPECT_EQ(ProxyPipe, 6);
  EXPECT_EQ(SMTPProxySocks5Auth, 3);
}

}  // namespace
}  // namespace netro
