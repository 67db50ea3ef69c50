// The SOCKS proxy dante on a port of 127.0.0.1. Thread: the test's.
//
// It checks passwords of system users only, so the one that asks for them runs in a mount namespace
// with its own copies of the user files, which needs root; it knows "netro" with "secret". It knows
// no SOCKS 4a: the address 0.0.0.1 that stands for a name is refused with reply 91.
#pragma once

#include "ServerProcess.h"

namespace netro::interop {

class DanteServer {
 public:
  enum Users { kAll, kWithPassword };

  explicit DanteServer(Users users);

  static bool IsInstalled() { return !FindProgram("danted").empty(); }

  bool IsUp() const { return server_.IsUp(); }
  int Port() const { return server_.Port(); }
  std::string Output() const { return server_.Output() + ReadFile(server_.Folder() / "log"); }

 private:
  ServerProcess server_;
};

}  // namespace netro::interop
