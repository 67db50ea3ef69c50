// BIND's name server with zones that a test writes. Thread: the test's.
#pragma once

#include <string>
#include <vector>

#include "ServerProcess.h"

namespace netro::interop {

struct Zone {
  std::string name;
  std::string text;
  std::string options;  // of its zone statement
};

class NamedServer {
 public:
  /// `options` stands in the options statement. Ready when the last zone is loaded.
  NamedServer(const std::vector<Zone>& zones, const std::string& options);

  static bool IsInstalled();

  bool IsUp() const { return ready_; }
  int Port() const { return server_.Port(); }
  std::string Output() const { return server_.Output(); }

 private:
  bool AwaitZone(const std::string& name) const;

  ServerProcess server_;
  bool ready_;
};

}  // namespace netro::interop
