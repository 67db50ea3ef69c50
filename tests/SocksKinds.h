// What each kind of SOCKS proxy is sent by a client whose settings have arrived there: one table
// for the classes that can use such a proxy.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "tests/peers/SocksServer.h"

namespace netro {

struct SocksKind {
  int type;  // as all classes number the kinds
  bool remoteNames = false;
  peers::SocksRules rules{};  // of the user "user" with the password "secret"
  std::vector<std::string> requests{};
};

/// For the server `name`, or 127.0.0.1, at a port of this machine.
inline std::vector<SocksKind> SocksKinds(const std::string& name, int serverPort) {
  using namespace std::string_literals;
  const std::string port = {static_cast<char>(serverPort / 256), static_cast<char>(serverPort)};
  const std::string local = "\x7f\0\0\x01"s;
  const std::string toAddress = "\x05\x01\0\x01"s + local + port;
  const std::string toName = "\x05\x01\0\x03"s + static_cast<char>(name.size()) + name + port;
  const std::string none = "\x05\x01\0"s, byPassword = "\x05\x02\0\x02"s;
  const std::string login = "\x01\x04user\x06secret"s;
  peers::SocksRules open, closed;
  closed.method = 2;
  closed.user = "user";
  closed.password = "secret";
  return {{1, false, open, {"\x04\x01"s + port + local + "user\0"s}},
          {1, true, open, {"\x04\x01"s + port + "\0\0\0\x01user\0"s + name + "\0"s}},
          {2, false, open, {none, toAddress}},
          {2, true, open, {none, toName}},
          {3, false, closed, {byPassword, login, toAddress}},
          {3, true, closed, {byPassword, login, toName}}};
}

}  // namespace netro
