// The wait routine, as the rooms from here upwards use it: a mark that knows the sockets' module.
#pragma once

#include <memory>
#include <utility>

#include "platform/Wait.h"
#include "socket/SocketModule.h"

namespace netro {

class CancelMark : public CallMark {
 public:
  CancelMark(std::shared_ptr<SocketModule> module, std::shared_ptr<CallState> object)
      : CallMark(module->SharedLoop(), std::move(object)), module_(std::move(module)) {}

  SocketModule& Module() const { return *module_; }

 private:
  std::shared_ptr<SocketModule> module_;
};

}  // namespace netro
