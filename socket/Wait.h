// The wait routine, as the rooms from here upwards use it: a mark that knows the sockets' module.
#pragma once

#include <memory>
#include <utility>

#include "platform/Wait.h"
#include "socket/SocketModule.h"

namespace netro {

/// How long a send may take whose owner has no limit of its own, SendData's for one.
constexpr long kStreamSendSeconds = 60;

class CancelMark : public CallMark {
 public:
  CancelMark(std::shared_ptr<SocketModule> module, std::shared_ptr<CallState> object)
      : CallMark(module->SharedLoop(), std::move(object)), module_(std::move(module)) {}

  SocketModule& Module() const { return *module_; }

 private:
  std::shared_ptr<SocketModule> module_;
};

}  // namespace netro
