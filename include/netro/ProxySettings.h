// The SOCKS proxy settings that the client classes share.
//
// Thread: as the class that has them.
#pragma once

#include <cstdint>
#include <string>
#include <utility>

namespace netro {

/// The settings as they are kept. `type` is 0 for none, 1 for SOCKS 4, 2 and 3 for SOCKS 5 without
/// and with user/password.
struct ProxyValues {
  std::int32_t type = 0;
  std::string url;
  std::int32_t port = 0;
  std::string user;
  std::string password;
  bool useRemoteDNS = false;

  bool operator==(const ProxyValues&) const = default;
};

/// The properties. `Type` is the class's own enumeration, see ProxyTypes.h.
template <class Type, std::int32_t DefaultPort = 0>
class ProxySettings {
 public:
  /// Which kind of proxy, and whether it is told user and password; the first one is none.
  Type ProxyType() const { return static_cast<Type>(proxy_.type); }
  void ProxyType(Type value) { proxy_.type = value; }
  /// Name or address of the proxy.
  const std::string& ProxyURL() const { return proxy_.url; }
  void ProxyURL(std::string value) { proxy_.url = std::move(value); }
  /// 1 to 65535.
  std::int32_t ProxyPort() const { return proxy_.port; }
  void ProxyPort(std::int32_t value) { proxy_.port = value; }
  /// What the proxy is told, SOCKS 4 the user alone; up to 255 bytes each.
  const std::string& ProxyUser() const { return proxy_.user; }
  void ProxyUser(std::string value) { proxy_.user = std::move(value); }
  const std::string& ProxyPassword() const { return proxy_.password; }
  void ProxyPassword(std::string value) { proxy_.password = std::move(value); }
  /// The proxy looks the server's name up.
  bool ProxyUseRemoteDNS() const { return proxy_.useRemoteDNS; }
  void ProxyUseRemoteDNS(bool value) { proxy_.useRemoteDNS = value; }

 protected:
  ProxySettings() { proxy_.port = DefaultPort; }
  ~ProxySettings() = default;

  const ProxyValues& Proxy() const { return proxy_; }

 private:
  ProxyValues proxy_;
};

}  // namespace netro
