// WhoIsCls: settings, results and the entry to a query; the work is WhoIsCall's.
#include <netro/WhoIsCls.h>

#include <new>

#include "platform/CallState.h"
#include "platform/ErrorNumbers.h"
#include "socket/SocketErrors.h"
#include "web/WhoIsCall.h"

namespace netro {

WhoIsCls::WhoIsCls() : module_(SocketModule::ForThread()), call_(std::make_shared<CallState>()) {}

WhoIsCls::~WhoIsCls() { call_->Die(); }

bool WhoIsCls::Fail(std::int32_t error, std::string text) {
  lastErr_ = error;
  lastErrMsg_ = text.empty() ? SocketErrorText(error) : std::move(text);
  return false;
}

std::vector<std::string> WhoIsCls::ServerTable(const std::string& Text) {
  const auto table = std::make_shared<WhoIsTable>();
  std::vector<std::string> problems = table->Read(Text);
  table_ = Text.empty() ? nullptr : table;
  return problems;
}

bool WhoIsCls::WhoIs(const std::string& Host, const std::string& Query) {
  const BusyScope busy(call_);
  if (busy.Refused()) return false;
  const auto call = call_;
  try {
    return WhoIsCall(*this).Run(std::string(Host), std::string(Query));
  } catch (const std::bad_alloc&) {
    return call->alive && Fail(kErrNoBuffers);
  }
}

void WhoIsCls::StopWaiting() { call_->Stop(module_->MessageLoop()); }

void WhoIsCls::Kill() { StopWaiting(); }

}  // namespace netro
