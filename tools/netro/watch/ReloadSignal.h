// SIGHUP, which asks a service to read its settings again. One at a time, on the main thread.
#pragma once

#include <csignal>

namespace netro::tool {

class ReloadSignal {
 public:
  ReloadSignal();
  ~ReloadSignal();
  ReloadSignal(const ReloadSignal&) = delete;
  ReloadSignal& operator=(const ReloadSignal&) = delete;

  /// Whether it has come since the last call.
  bool Take();

 private:
  struct sigaction before_ {};
};

}  // namespace netro::tool
