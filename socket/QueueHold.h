// Keeps the queue of a socket back while other bytes have the connection to themselves: those of a
// SendData, which come behind what was queued before it and ahead of what is queued meanwhile, or
// the messages of a SOCKS prolog. Lives on the call's stack; ends with the call, or with the
// connection that it was begun for.
#pragma once

#include <cstddef>
#include <memory>

#include "platform/CallState.h"

namespace netro {

class SocketCls;

class QueueHold {
 public:
  /// `send`: what a SendData marks the object as busy with; ends with the hold.
  explicit QueueHold(SocketCls& socket, BusyScope* send = nullptr);
  ~QueueHold() { End(); }
  QueueHold(const QueueHold&) = delete;
  QueueHold& operator=(const QueueHold&) = delete;

  bool IsSend() const { return send_ != nullptr; }
  void End();

 private:
  SocketCls& socket_;
  const std::shared_ptr<CallState> call_;
  BusyScope* send_;
  const bool hadQueue_;
  bool ended_ = false;
};

}  // namespace netro
