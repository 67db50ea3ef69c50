// One HTTP query, step by step.
//
//   settings checked → URL split → [connect → SOCKS prolog → request sent → answer awaited] →
//   result
//
// The part in brackets is an exchange. A 407 answer repeats it once with the proxy's credentials, a
// 401 answer once with the server's, each time on a new connection; so there are at most three.
//
// Every step that waits may find the HTTPCls deleted afterwards: it returns false then, and Run
// touches nothing of the owner. A step that fails has closed the socket, removed a half-written
// file, and left number and text.
#include "web/HttpQuery.h"

#include <netro/Localization.h>

#include <utility>

#include "platform/ErrorNumbers.h"
#include "socket/SocketErrors.h"
#include "support/Text.h"

namespace netro {

HttpQuery::HttpQuery(HTTPCls& owner)
    : owner_(owner), call_(owner.call_), mark_(SocketOwner::Module(owner.socket_), owner.call_) {}

std::string HttpQuery::Run(bool& timeout) {
  timeout = false;
  Reset();
  mark_.Module().MessageLoop().PumpMessages();
  bool succeeded = call_->alive && CheckSettings() && Prepare();
  while (succeeded) {
    succeeded = Exchange(timeout);
    if (!succeeded || !Refused()) break;
  }
  if (!call_->alive) return SocketErrorText(kErrCancelled);
  owner_.socket_.Events(nullptr);
  return succeeded ? Finish() : errorText_;
}

void HttpQuery::Reset() {
  owner_.lastErr_ = 0;
  owner_.httpResult_ = 0;
  owner_.httpResultMsg_.clear();
  owner_.headerLen_ = 0;
  owner_.bodyLen_ = 0;
  owner_.receivedBytes_ = 0;
  owner_.contentType_.clear();
  Forget();
  owner_.socket_.Disconnect();
  owner_.socket_.Events(this);
}

// Takes back what an answer without text made of the file settings.
void HttpQuery::Forget() {
  file_.Discard();
  if (std::exchange(owner_.automaticSave_, false)) owner_.saveAsFile_ = false;
  if (std::exchange(owner_.automaticName_, false)) owner_.filename_.clear();
}

bool HttpQuery::Fail(std::int32_t error, std::string text) {
  owner_.socket_.Disconnect();
  Forget();
  owner_.lastErr_ = error;
  owner_.waitForConnect_ = owner_.waitForSocksData_ = owner_.waitForData_ = false;
  errorText_ = text.empty() ? SocketErrorText(error) : std::move(text);
  return false;
}

bool HttpQuery::CheckText(const std::string& value, const char* name) {
  if (!HasControl(value)) return true;
  return Fail(kErrInvalidArgument, std::string(name) + " must not hold CR, LF or NUL.");
}

bool HttpQuery::CheckSettings() {
  if (owner_.queryType_ < QueryGet || owner_.queryType_ > QueryHeader) {
    return Fail(kErrInvalidArgument, "QueryType is none of the request methods.");
  }
  for (const auto& [name, value] : owner_.headers_) {
    if (name.empty() || name.find_first_of(": \t") != std::string::npos) {
      return Fail(kErrInvalidArgument, "HeaderName must be one word without a colon.");
    }
    if (!CheckText(name, "HeaderName") || !CheckText(value, "HeaderValue")) return false;
  }
  return CheckText(owner_.httpToken_, "HTTPToken") && CheckText(owner_.user_, "User") &&
         CheckText(owner_.filename_, "Filename") && CheckProxy();
}

bool HttpQuery::CheckProxy() {
  if (owner_.proxyType_ < NoProxy || owner_.proxyType_ > ProxyPipe) {
    return Fail(kErrInvalidArgument, "ProxyType is none of the proxy kinds.");
  }
  if (!CheckText(owner_.proxyUser_, "ProxyUser")) return false;
  if (owner_.proxyType_ == NoProxy) return true;
  if (owner_.proxyURL_.empty()) return Fail(kErrInvalidArgument, "ProxyURL is empty.");
  if (owner_.proxyPort_ < 1 || owner_.proxyPort_ > 65535) {
    return Fail(kErrInvalidArgument,
                "ProxyPort " + std::to_string(owner_.proxyPort_) + " is no port.");
  }
  return true;
}

bool HttpQuery::Prepare() {
  UrlResult split = SplitUrl(owner_.url_);
  if (!split.error.empty()) return Fail(kErrInvalidArgument, "URL: " + split.error);
  url_ = std::move(split.url);
  if (url_.protocol != "http" && !UsesHttpProxy()) {
    return Fail(kErrProtocolNotSupported,
                "URL: the protocol \"" + url_.protocol +
                    "\" is not supported; only an HTTP proxy can fetch it.");
  }
  owner_.socket_.DNSURL(owner_.dnsURL_);
  proxyAuthorization_ =
      owner_.proxyType_ == ProxyBasicAuthorization || owner_.proxyType_ == ProxyMSISAServer;
  serverAuthorization_ = owner_.sendAuthAfterChallenge_;
  return true;
}

bool HttpQuery::UsesHttpProxy() const { return owner_.proxyType_ != NoProxy && !UsesSocks(); }

bool HttpQuery::UsesSocks() const {
  return owner_.proxyType_ >= ProxySocks4 && owner_.proxyType_ <= ProxySocks5Auth;
}

bool HttpQuery::Exchange(bool& timeout) { return Open() && Send() && AwaitAnswer(timeout); }

ConnectionPlan HttpQuery::Plan() const {
  ConnectionPlan plan;
  plan.host = UsesHttpProxy() ? owner_.proxyURL_ : url_.host;
  plan.port = UsesHttpProxy() ? owner_.proxyPort_ : url_.port;
  plan.proxyHost = owner_.proxyURL_;
  plan.proxyPort = owner_.proxyPort_;
  plan.proxyUser = owner_.proxyUser_;
  plan.proxyPassword = owner_.proxyPassword_;
  plan.remoteDNS = owner_.proxyUseRemoteDNS_;
  plan.seconds = owner_.timeOutSeconds_;
  switch (owner_.proxyType_) {
    case ProxySocks4:
      plan.socks = SocksKind::Socks4;
      break;
    case ProxySocks5NoAuth:
      plan.socks = SocksKind::Socks5NoAuth;
      break;
    case ProxySocks5Auth:
      plan.socks = SocksKind::Socks5Auth;
      break;
    default:
      break;
  }
  return plan;
}

bool HttpQuery::Open() {
  owner_.firstChunk_ = true;
  owner_.waitForDataLen_ = 0;
  owner_.transferChunkOffset_ = 0;
  const ConnectionPlan plan = Plan();
  owner_.waitForConnect_ = true;
  std::int32_t error = SocketOwner::Connect(owner_.socket_, plan, mark_);
  if (!call_->alive) return false;
  owner_.waitForConnect_ = false;
  if (error != 0) return Fail(error);

  owner_.waitForSocksData_ = UsesSocks();
  error = SocketOwner::RunProlog(owner_.socket_, plan, mark_);
  if (!call_->alive) return false;
  owner_.waitForSocksData_ = false;
  if (error == 0) return true;
  const bool isProxyText = error >= kErrSocksRefused && error <= kErrSocksMethod;
  return Fail(error, isProxyText
                         ? GetMessageText(error, {plan.proxyHost, std::to_string(plan.proxyPort)})
                         : std::string());
}

HttpRequest HttpQuery::Request() const {
  static constexpr const char* kMethods[] = {"GET", "POST", "HEAD"};
  HttpRequest request;
  request.method = kMethods[owner_.queryType_];
  request.url = url_;
  request.absoluteForm = UsesHttpProxy();
  request.token = owner_.httpToken_;
  request.headers = owner_.headers_;
  // A SOCKS proxy's credentials are for the SOCKS proxy: an answer of 407 from behind it does not
  // get them.
  if (proxyAuthorization_ && !owner_.proxyUser_.empty() && !UsesSocks()) {
    request.proxy = {owner_.proxyUser_, owner_.proxyPassword_, proxyChallenge_};
  }
  if (url_.hasUserInfo) {
    request.server = {url_.user, url_.password, serverChallenge_};
  } else if (serverAuthorization_) {
    request.server = {owner_.user_, owner_.password_, serverChallenge_};
  }
  if (owner_.queryType_ == QueryPost) request.body = owner_.postData_;
  return request;
}

bool HttpQuery::Send() {
  if (owner_.saveAsFile_ && !owner_.filename_.empty()) {
    const std::int32_t error = RemoveFile(owner_.filename_);
    if (error != 0) return Fail(error, CanNotWrite(error));
  }
  HttpAnswer::Options options;
  options.headOnly = owner_.queryType_ == QueryHeader;
  options.removeChunks = owner_.removeChunkHeader_;
  answer_ = std::make_unique<HttpAnswer>(options, static_cast<HttpBodySink&>(*this));
  owner_.receivedBytes_ = 0;
  owner_.waitForData_ = true;
  owner_.closeMeansEnd_ = true;
  const std::string text = Request().Compose();
  const std::int32_t error = SocketOwner::Send(owner_.socket_, text, mark_);
  if (!call_->alive) return false;
  // A server may answer and hang up before it has read everything.
  return error == 0 || answer_->IsComplete() || Fail(error);
}

bool HttpQuery::AwaitAnswer(bool& timeout) {
  const WaitEnd end = WaitUntil(mark_, SecondsFromNow(owner_.timeOutSeconds_), [&] {
    return !call_->alive || !owner_.waitForData_ || owner_.lastErr_ != 0;
  });
  if (!call_->alive) return false;
  timeout = end == WaitEnd::TimedOut;
  if (end != WaitEnd::Done) return Fail(WaitError(end));
  if (owner_.lastErr_ != 0) return Fail(owner_.lastErr_, std::move(errorText_));
  if (answer_->Error() != 0) return FailAnswer();
  if (mark_.Cancelled()) return Fail(kErrCancelled);
  owner_.socket_.Disconnect();
  const std::int32_t error = file_.Finish();
  return error == 0 || Fail(error, CanNotWrite(error));
}

bool HttpQuery::FailAnswer() {
  const std::string text = answer_->ErrorText();
  Fail(answer_->Error(), text);
  errorText_ = text;  // empty when the server hung up without a word
  return false;
}

// True when the answer asks for credentials and the exchange is to be repeated with them.
bool HttpQuery::Refused() {
  const std::string_view line = answer_->FirstLine();
  const std::string_view header = answer_->Header();
  if (!proxyAsked_ && line.find("407") != std::string_view::npos) {
    proxyAsked_ = proxyAuthorization_ = true;
    proxyChallenge_ = ParseChallenge(header, "Proxy-Authenticate");
  } else if (!serverAsked_ && owner_.sendAuthAfterChallenge_ &&
             line.find("401") != std::string_view::npos) {
    serverAsked_ = serverAuthorization_ = true;
    serverChallenge_ = ParseChallenge(header, "WWW-Authenticate");
  } else {
    return false;
  }
  if (owner_.saveAsFile_ && answer_->BodyInFile()) RemoveFile(owner_.filename_);
  Forget();
  return true;
}

std::string HttpQuery::Finish() {
  const HttpStatus status = ParseStatusLine(answer_->FirstLine());
  owner_.httpResult_ = status.code;
  owner_.httpResultMsg_ = status.reason;
  Publish();
  owner_.bodyLen_ = answer_->BodyLength();
  return answer_->TakeText();
}

void HttpQuery::Publish() {
  owner_.headerLen_ = static_cast<std::int32_t>(answer_->Header().size());
  owner_.contentType_ = answer_->ContentType();
  owner_.closeMeansEnd_ = answer_->CloseMeansEnd();
  owner_.waitForDataLen_ = answer_->HeaderComplete() ? answer_->ExpectedLength() : 0;
  owner_.transferChunkOffset_ = answer_->NextChunk();
  owner_.firstChunk_ = !answer_->HeaderComplete();
}

void HttpQuery::DataArrival(const Bytes& BinData, const std::string& RemoteHostIP) {
  if (answer_ == nullptr || !owner_.waitForData_) return;
  owner_.receivedBytes_ += static_cast<double>(BinData.size());
  try {
    answer_->Feed(BinData);
  } catch (const std::bad_alloc&) {
    answer_->Abandon();
    owner_.lastErr_ = kErrNoBuffers;
  }
  Publish();
  if (answer_->IsComplete() || answer_->Error() != 0) owner_.waitForData_ = false;
  if (owner_.events_ != nullptr) owner_.events_->Status(owner_, RemoteHostIP);
}

void HttpQuery::Closed() {
  if (answer_ == nullptr || !owner_.waitForData_) return;
  answer_->ConnectionEnded(SocketOwner::CloseError(owner_.socket_));
  owner_.waitForData_ = false;
}

bool HttpQuery::BeginBody() {
  const bool text = StartsWithIgnoreCase(answer_->ContentType(), "text/");
  if (text && !owner_.saveAsFile_) return false;
  std::int32_t error = 0;
  if (!owner_.saveAsFile_) owner_.saveAsFile_ = owner_.automaticSave_ = true;
  if (owner_.filename_.empty()) {
    error = file_.CreateTemporary("ansel", "tmp");
    owner_.filename_ = file_.Path();
    owner_.automaticName_ = true;
  } else {
    error = file_.Create(owner_.filename_);
  }
  if (error != 0) AbandonBody(error);
  return true;
}

void HttpQuery::WriteBody(std::span<const std::uint8_t> bytes) {
  if (const std::int32_t error = file_.Write(bytes)) AbandonBody(error);
}

void HttpQuery::AbandonBody(std::int32_t error) {
  answer_->Abandon();
  owner_.lastErr_ = error;
  errorText_ = CanNotWrite(error);
}

std::string HttpQuery::CanNotWrite(std::int32_t error) const {
  return "Can not write \"" + owner_.filename_ + "\". " + SocketErrorText(error);
}

}  // namespace netro
