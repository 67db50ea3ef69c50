// WhoIsCls: one exchange a query, whose answer ends with the connection.
#include <netro/Localization.h>
#include <netro/WhoIsCls.h>

#include <algorithm>
#include <new>

#include "platform/Address.h"
#include "platform/CallState.h"
#include "platform/ErrorNumbers.h"
#include "socket/SocketErrors.h"
#include "socket/StreamExchange.h"
#include "support/Text.h"
#include "support/Url.h"

namespace netro {
namespace {

constexpr std::size_t kLargestAnswer = 64 * 1024 * 1024;
constexpr std::int32_t kTextCanNotConnect = 7500;

}  // namespace

class WhoIsQuery final : public StreamExchange {
 public:
  WhoIsQuery(WhoIsCls& owner, const std::string& query, const CancelMark& mark)
      : StreamExchange(mark), owner_(owner), call_(owner.call_), request_(query + "\r\n") {}

 private:
  std::string Request() override { return request_; }

  void Arrived(std::span<const std::uint8_t> bytes) override {
    if (!call_->alive) return;
    Progress();
    std::string& result = owner_.result_;
    const auto taken = bytes.first(std::min(bytes.size(), kLargestAnswer - result.size()));
    result.append(reinterpret_cast<const char*>(taken.data()), taken.size());
    if (taken.size() < bytes.size()) End(kErrMessageTooLong);
  }

  std::int32_t PeerClosed(std::int32_t error) override { return error; }

  WhoIsCls& owner_;
  std::shared_ptr<CallState> call_;
  const std::string request_;
};

WhoIsCls::WhoIsCls() : module_(SocketModule::ForThread()), call_(std::make_shared<CallState>()) {}

WhoIsCls::~WhoIsCls() { call_->Die(); }

bool WhoIsCls::Fail(std::int32_t error, std::string text) {
  lastErr_ = error;
  lastErrMsg_ = text.empty() ? SocketErrorText(error) : std::move(text);
  return false;
}

bool WhoIsCls::WhoIs(const std::string& Host, const std::string& Query) {
  const BusyScope busy(call_);
  if (busy.Refused()) return false;
  const auto call = call_;
  try {
    return Ask(Host, Query);
  } catch (const std::bad_alloc&) {
    return call->alive && Fail(kErrNoBuffers);
  }
}

bool WhoIsCls::Ask(std::string host, std::string query) {
  const CancelMark mark(module_, call_);
  result_.clear();
  lastErr_ = 0;
  lastErrMsg_.clear();
  if (HasControl(query)) {
    return Fail(kErrInvalidArgument, "Query must not hold CR, LF or NUL.");
  }
  const UrlResult split = SplitUrl(host);
  if (!split.error.empty()) return Fail(kErrInvalidArgument, "Host: " + split.error);
  ConnectionPlan plan;
  plan.host = split.url.host;
  plan.port = split.url.hasPort ? split.url.port : port_;
  plan.seconds = timeout_;
  plan.lookup = {dnsURL_, preference_};
  if (plan.port < 1 || plan.port > 65535) {
    return Fail(kErrInvalidArgument, "Port " + std::to_string(plan.port) + " is no port.");
  }
  if (!PlanProxy(Proxy(), plan)) {
    return Fail(
        kErrInvalidArgument,
        "ProxyType is none of the proxy kinds, ProxyURL is empty, or ProxyPort is no port.");
  }

  const auto call = call_;
  WhoIsQuery exchange(*this, query, mark);
  const std::int32_t error = exchange.Run(plan);
  if (!call->alive) return false;
  if (error == 0) return true;
  return Fail(error, exchange.Connected() ? std::string() : ConnectText(plan, error));
}

// Cancelling and waiting in vain have texts of their own.
std::string WhoIsCls::ConnectText(const ConnectionPlan& plan, std::int32_t error) {
  if (error == kErrCancelled || error == kErrTimedOut) return {};
  const bool direct = plan.socks == SocksKind::None;
  return GetMessageText(kTextCanNotConnect,
                        {FormatEndpoint(direct ? plan.host : plan.proxyHost,
                                        direct ? plan.port : plan.proxyPort),
                         std::to_string(error), SocketErrorText(error)});
}

void WhoIsCls::StopWaiting() { call_->Stop(module_->MessageLoop()); }

void WhoIsCls::Kill() { StopWaiting(); }

}  // namespace netro
