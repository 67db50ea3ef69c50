// The kinds of proxy that each client class can go through.
//
// "Socks4" is SOCKS version 4 (4a when the proxy resolves the name), "Socks5NoAuth" and
// "Socks5Auth" are SOCKS version 5 (RFC 1928) without and with user/password (RFC 1929).
#pragma once

#include <cstdint>

namespace netro {

/// Proxy of the time client.
enum TimeProxyTypeEnum : std::int32_t {
  NoTimeProxy = 0,
  TimeProxySocks4 = 1,
  TimeProxySocks5NoAuth = 2,
  TimeProxySocks5Auth = 3,
};

/// Proxy of the DNS client.
enum DNSProxyTypeEnum : std::int32_t {
  NoDNSProxy = 0,
  DNSProxySocks4 = 1,
  DNSProxySocks5NoAuth = 2,
  DNSProxySocks5Auth = 3,
};

/// Proxy of the WHOIS client.
enum WhoIsProxyTypeEnum : std::int32_t {
  NoWhoIsProxy = 0,
  WhoIsProxySocks4 = 1,
  WhoIsProxySocks5NoAuth = 2,
  WhoIsProxySocks5Auth = 3,
};

/// Proxy of the SMTP client.
enum SMTPProxyTypeEnum : std::int32_t {
  NoSMTPProxy = 0,
  SMTPProxySocks4 = 1,
  SMTPProxySocks5NoAuth = 2,
  SMTPProxySocks5Auth = 3,
};

/// Proxy of the HTTP client. Kinds 1, 2 and 6 are HTTP proxies, which get the URL in absolute form;
/// 1 and 2 send the proxy credentials with the first request, 6 only after the proxy asked.
enum ProxyTypeEnum : std::int32_t {
  NoProxy = 0,
  ProxyBasicAuthorization = 1,
  ProxyMSISAServer = 2,
  ProxySocks4 = 3,
  ProxySocks5NoAuth = 4,
  ProxySocks5Auth = 5,
  ProxyPipe = 6,
};

}  // namespace netro
