// One HTTP query: its connection. One that was kept from an earlier query, or a new one: directly
// or through a proxy, in a tunnel where TLS goes through an HTTP proxy, and then protected.
#include <netro/Localization.h>

#include <algorithm>
#include <iterator>
#include <utility>

#include "platform/Address.h"
#include "platform/ErrorNumbers.h"
#include "socket/SocketErrors.h"
#include "support/UrlReference.h"
#include "web/HttpFraming.h"
#include "web/HttpPool.h"
#include "web/HttpQuery.h"
#include "web/HttpTunnel.h"

namespace netro {
namespace {

constexpr std::int32_t kProxyRefusal = 407;

bool IsIdempotent(const std::string& method) {
  constexpr std::string_view kMethods[] = {"GET", "HEAD", "PUT", "DELETE", "OPTIONS", "TRACE"};
  return std::ranges::find(kMethods, method) != std::end(kMethods);
}

}  // namespace

bool HttpQuery::Open() {
  owner_.firstChunk_ = true;
  owner_.waitForDataLen_ = 0;
  owner_.transferChunkOffset_ = 0;
  answer_.reset();
  if (options_.keepAlive) key_ = ConnectionKey();
  reused_ = TakeKept();
  if (!call_->alive) return false;
  if (reused_) {
    BeginAnswer();
    return true;
  }
  return OpenNew();
}

// What leads to the same place for the same people, and nothing else, shares connections.
std::string HttpQuery::ConnectionKey() const {
  std::string key;
  key.reserve(200);
  const auto add = [&](std::string_view part) {
    key += part;
    key += '\0';
  };
  const auto addNumber = [&](std::uintptr_t number) { add(std::to_string(number)); };
  const bool secure = url_.protocol == "https";
  add(secure ? "https" : "http");
  // Its name was proved by a certificate, and other names may lead to the same address or proxy.
  if (secure || !UsesHttpProxy()) {
    add(url_.host);
    addNumber(static_cast<std::uint32_t>(url_.port));
    add(HostAddress());
  }
  addNumber(static_cast<std::uint32_t>(settings_.proxyType));
  if (settings_.proxyType != NoProxy) {
    add(settings_.proxyURL);
    addNumber(static_cast<std::uint32_t>(settings_.proxyPort));
    add(settings_.proxyUser);
    add(settings_.proxyPassword);
    add(settings_.proxyUseRemoteDNS ? "remote" : "");
  }
  if (secure) addNumber(reinterpret_cast<std::uintptr_t>(options_.tls.get()));
  add(settings_.dnsURL);
  addNumber(static_cast<std::uint32_t>(settings_.preference));
  add(ownOrigin_ ? settings_.user : "");
  add(ownOrigin_ ? settings_.password : "");
  add(url_.user);
  add(url_.password);
  return key;
}

bool HttpQuery::TakeKept() {
  if (!options_.keepAlive || onlyNew_) return false;
  // A request that must not be sent twice waits for news of the connection first.
  if (!IsIdempotent(method_) && mark_.MessageLoop().MayPumpAside()) {
    mark_.MessageLoop().PumpMessages();
    if (!call_->alive) return false;
  }
  auto kept = HttpPool::ForThread()->Take(key_);
  if (kept == nullptr) return false;
  owner_.socket_ = std::move(kept);
  SocketOwner::Adopt(*owner_.socket_, mark_);
  owner_.socket_->Events(this);
  owner_.tlsInfo_ = owner_.socket_->TlsInfo();
  Note("reused", FormatEndpoint(owner_.socket_->RemoteIP(), owner_.socket_->RemotePort()));
  return true;
}

// Of a step of connecting, and of all of them together.
TimePoint HttpQuery::ConnectDeadline() const {
  return std::min(SecondsFromNow(settings_.timeOutSeconds), connectLimit_);
}

bool HttpQuery::OpenNew() {
  const bool limited = options_.connectTimeout.count() > 0;
  connectLimit_ = limited ? MillisecondsFromNow(options_.connectTimeout) : TimePoint::max();
  mark_.LimitTo(std::min(limit_, connectLimit_));  // also of a proxy's replies
  const bool opened = OpenWithinLimit();
  mark_.LimitTo(limit_);
  return opened;
}

bool HttpQuery::OpenWithinLimit() {
  if (owner_.socket_ == nullptr) owner_.socket_ = std::make_unique<SocketCls>();
  owner_.socket_->Events(this);
  bool again = false;
  do {
    again = false;
    if (!OpenSocket() || !OpenTunnel(again)) return false;
  } while (again);
  if (!Protect()) return false;
  if (answer_ == nullptr) BeginAnswer();
  return true;
}

bool HttpQuery::OpenSocket() {
  ConnectionPlan plan = Plan();
  plan.limit = connectLimit_;
  plan.trace = [this](std::string_view step, const std::string& detail) { Note(step, detail); };
  // A server may answer or hang up before it was asked; behind a proxy only once it is reached.
  if (!UsesSocks() && !UsesTunnel() && url_.protocol != "https") BeginAnswer();
  owner_.waitForConnect_ = true;
  std::int32_t error = SocketOwner::Connect(*owner_.socket_, plan, mark_);
  // What only waits for a use gives way to what is in use.
  if (error == kErrTooManyFiles && call_->alive && HttpPool::ForThread()->Clear()) {
    error = SocketOwner::Connect(*owner_.socket_, plan, mark_);
  }
  if (!call_->alive) return false;
  owner_.waitForConnect_ = false;
  if (error != 0) return Fail(error);
  Note("connected", FormatEndpoint(owner_.socket_->RemoteIP(), owner_.socket_->RemotePort()));
  return !UsesSocks() || RunProlog(plan);
}

bool HttpQuery::RunProlog(const ConnectionPlan& plan) {
  owner_.waitForSocksData_ = true;
  std::int32_t error = SocketOwner::RunProlog(*owner_.socket_, plan, mark_);
  if (!call_->alive) return false;
  owner_.waitForSocksData_ = false;
  if (error == 0) Note("socks", FormatEndpoint(plan.host, plan.port));
  if (error == 0 && url_.protocol != "https") BeginAnswer();
  if (error == 0) return true;
  if (error == kErrNoDnsEntries) error = kErrHostNotFound;
  const bool isProxyText = error >= kErrSocksRefused && error <= kErrSocksMethod;
  return Fail(error, isProxyText
                         ? GetMessageText(error, {plan.proxyHost, std::to_string(plan.proxyPort)})
                         : std::string());
}

// `again`: the proxy wants credentials, and closes what it has refused.
bool HttpQuery::OpenTunnel(bool& again) {
  if (!UsesTunnel()) return true;
  HttpRequest request;
  request.method = "CONNECT";
  request.url = url_;
  request.token = "HTTP/1.1";
  if (proxyLogin_.send && !settings_.proxyUser.empty()) {
    request.proxy = {settings_.proxyUser, settings_.proxyPassword, proxyLogin_.challenge, Form()};
  }
  std::ranges::copy_if(settings_.headers, std::back_inserter(request.headers), IsForProxy);
  const auto deadline = ConnectDeadline();
  HttpTunnel tunnel(*owner_.socket_, mark_);
  const std::int32_t error = tunnel.Ask(request.ComposeHead(), deadline);
  if (!call_->alive) return false;
  if (error == 0) Note("tunnel", HostAndPort(url_));
  if (error == 0) return true;
  if (error != kErrRefused || tunnel.Status().code == 0) return Fail(error, tunnel.ErrorText());
  const HttpStatus status = tunnel.Status();
  again = status.code == kProxyRefusal && !settings_.proxyUser.empty() &&
          proxyLogin_.Refused(ParseChallenges(tunnel.Head(), "Proxy-Authenticate"), Form());
  const std::string answer = std::to_string(status.code) + ' ' + Shown(status.reason);
  if (again) Note("login", answer);
  if (again) return true;
  Fail(error, "The proxy refused a tunnel to " + HostAndPort(url_) + ": " + answer);
  owner_.httpResult_ = status.code;
  owner_.httpResultMsg_ = status.reason;
  return false;
}

bool HttpQuery::Protect() {
  if (url_.protocol != "https") return true;
  const auto deadline = ConnectDeadline();
  SocketCls& socket = *owner_.socket_;
  const std::int32_t error =
      SocketOwner::StartTls(socket, url_.host, options_.tls, mark_, deadline);
  if (!call_->alive) return false;
  owner_.tlsInfo_ = socket.TlsInfo();
  if (error != 0) return Fail(error, socket.LastSocketErrMsg());
  const TlsInfo& info = owner_.tlsInfo_;
  Note("tls", info.protocol + ' ' + info.cipher + (info.resumed ? " resumed" : ""));
  return true;
}

// Keeps the connection for the next query, or closes it.
void HttpQuery::LeaveConnection() {
  const bool usable = options_.keepAlive && sentAll_ && answer_->LeavesConnectionUsable() &&
                      owner_.socket_->State() == sockConnected;
  if (!usable) return owner_.socket_->Disconnect();
  HttpPool::ForThread()->Give(std::move(key_), std::move(owner_.socket_), options_.tls);
}

// True for an exchange on a kept connection that ended before a byte of an answer: most likely the
// server had closed it.
bool HttpQuery::WasLost() const {
  return reused_ && answer_->Error() == kErrConnectionReset && owner_.receivedBytes_ == 0 &&
         IsIdempotent(method_) && (body_ == nullptr || body_->Rewind());
}

}  // namespace netro
