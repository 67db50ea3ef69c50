// SIGHUP, which asks a service to read its settings again; Windows has no such word. One at a time,
// on the main thread.
#pragma once

namespace netro::tool {

class ReloadSignal {
 public:
  ReloadSignal();
  ~ReloadSignal();
  ReloadSignal(const ReloadSignal&) = delete;
  ReloadSignal& operator=(const ReloadSignal&) = delete;

  /// Whether it has come since the last call.
  bool Take();
};

}  // namespace netro::tool
