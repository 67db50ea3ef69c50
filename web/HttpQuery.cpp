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
#include "support/OnException.h"
#include "support/Text.h"

namespace netro {

HttpQuery::HttpQuery(HTTPCls& owner)
    : owner_(owner), call_(owner.call_), mark_(SocketOwner::Module(owner.socket_), owner.call_) {
  Forget();
  settings_ = owner.settings_;
}

std::string HttpQuery::Run(bool& timeout) {
  const OnException giveUp([this] {
    if (call_->alive) GiveUp();
  });
  timeout = false;
  Reset();
  // Deep inside other calls it is left out: what it delivers may make one more call.
  if (mark_.MessageLoop().MayPumpAside()) mark_.MessageLoop().PumpMessages();
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
  owner_.socket_.Disconnect();
  owner_.socket_.Events(this);
}

// Takes back what an answer without text made of the file settings.
void HttpQuery::Forget() {
  file_.Discard();
  if (std::exchange(owner_.automaticSave_, false)) owner_.settings_.saveAsFile = false;
  if (std::exchange(owner_.automaticName_, false)) owner_.settings_.filename.clear();
}

void HttpQuery::GiveUp() {
  owner_.socket_.Events(nullptr);
  owner_.socket_.Disconnect();
  Forget();
  owner_.headerLen_ = 0;
  owner_.contentType_.clear();
  owner_.waitForConnect_ = owner_.waitForSocksData_ = owner_.waitForData_ = false;
}

bool HttpQuery::Fail(std::int32_t error, std::string text) {
  GiveUp();
  owner_.lastErr_ = error;
  errorText_ = text.empty() ? SocketErrorText(error) : std::move(text);
  return false;
}

bool HttpQuery::CheckText(const std::string& value, const char* name) {
  if (!HasControl(value)) return true;
  return Fail(kErrInvalidArgument, std::string(name) + " must not hold CR, LF or NUL.");
}

bool HttpQuery::CheckSettings() {
  if (settings_.queryType < QueryGet || settings_.queryType > QueryHeader) {
    return Fail(kErrInvalidArgument, "QueryType is none of the request methods.");
  }
  for (const auto& [name, value] : settings_.headers) {
    if (name.empty() || name.find_first_of(": \t") != std::string::npos) {
      return Fail(kErrInvalidArgument, "HeaderName must be one word without a colon.");
    }
    if (!CheckText(name, "HeaderName") || !CheckText(value, "HeaderValue")) return false;
  }
  return CheckText(settings_.httpToken, "HTTPToken") && CheckText(settings_.user, "User") &&
         CheckText(settings_.filename, "Filename") && CheckProxy();
}

bool HttpQuery::CheckProxy() {
  if (settings_.proxyType < NoProxy || settings_.proxyType > ProxyPipe) {
    return Fail(kErrInvalidArgument, "ProxyType is none of the proxy kinds.");
  }
  if (!CheckText(settings_.proxyUser, "ProxyUser")) return false;
  if (settings_.proxyType == NoProxy) return true;
  if (settings_.proxyURL.empty()) return Fail(kErrInvalidArgument, "ProxyURL is empty.");
  if (settings_.proxyPort < 1 || settings_.proxyPort > 65535) {
    return Fail(kErrInvalidArgument,
                "ProxyPort " + std::to_string(settings_.proxyPort) + " is no port.");
  }
  return true;
}

bool HttpQuery::Prepare() {
  UrlResult split = SplitUrl(settings_.url);
  if (!split.error.empty()) return Fail(kErrInvalidArgument, "URL: " + split.error);
  url_ = std::move(split.url);
  if (url_.protocol != "http" && !UsesHttpProxy()) {
    return Fail(kErrProtocolNotSupported,
                "URL: the protocol \"" + url_.protocol +
                    "\" is not supported; only an HTTP proxy can fetch it.");
  }
  proxyAuthorization_ =
      settings_.proxyType == ProxyBasicAuthorization || settings_.proxyType == ProxyMSISAServer;
  serverAuthorization_ = settings_.sendAuthAfterChallenge;
  return true;
}

bool HttpQuery::UsesHttpProxy() const { return settings_.proxyType != NoProxy && !UsesSocks(); }

bool HttpQuery::UsesSocks() const {
  return settings_.proxyType >= ProxySocks4 && settings_.proxyType <= ProxySocks5Auth;
}

bool HttpQuery::Exchange(bool& timeout) { return Open() && Send() && AwaitAnswer(timeout); }

ConnectionPlan HttpQuery::Plan() const {
  ConnectionPlan plan;
  plan.host = UsesHttpProxy() ? settings_.proxyURL : url_.host;
  plan.port = UsesHttpProxy() ? settings_.proxyPort : url_.port;
  plan.proxyHost = settings_.proxyURL;
  plan.proxyPort = settings_.proxyPort;
  plan.proxyUser = settings_.proxyUser;
  plan.proxyPassword = settings_.proxyPassword;
  plan.remoteDNS = settings_.proxyUseRemoteDNS;
  plan.seconds = settings_.timeOutSeconds;
  plan.lookup = {settings_.dnsURL, settings_.preference};
  switch (settings_.proxyType) {
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
  answer_.reset();
  // A server may answer or hang up before it was asked; behind a SOCKS proxy only once it is
  // reached.
  if (!UsesSocks()) BeginAnswer();
  owner_.waitForConnect_ = true;
  std::int32_t error = SocketOwner::Connect(owner_.socket_, plan, mark_);
  if (!call_->alive) return false;
  owner_.waitForConnect_ = false;
  if (error != 0) return Fail(error);
  if (!UsesSocks()) return true;

  owner_.waitForSocksData_ = true;
  error = SocketOwner::RunProlog(owner_.socket_, plan, mark_);
  if (!call_->alive) return false;
  owner_.waitForSocksData_ = false;
  if (error == 0) BeginAnswer();
  if (error == 0) return true;
  if (error == kErrNoDnsEntries) error = kErrHostNotFound;
  const bool isProxyText = error >= kErrSocksRefused && error <= kErrSocksMethod;
  return Fail(error, isProxyText
                         ? GetMessageText(error, {plan.proxyHost, std::to_string(plan.proxyPort)})
                         : std::string());
}

HttpRequest HttpQuery::Request() const {
  static constexpr const char* kMethods[] = {"GET", "POST", "HEAD"};
  HttpRequest request;
  request.method = kMethods[settings_.queryType];
  request.url = url_;
  request.absoluteForm = UsesHttpProxy();
  request.token = settings_.httpToken;
  request.headers = settings_.headers;
  // A SOCKS proxy's credentials are for the SOCKS proxy: an answer of 407 from behind it does not
  // get them.
  if (proxyAuthorization_ && !settings_.proxyUser.empty() && !UsesSocks()) {
    request.proxy = {settings_.proxyUser, settings_.proxyPassword, proxyChallenge_};
  }
  if (url_.hasUserInfo) {
    request.server = {url_.user, url_.password, serverChallenge_};
  } else if (serverAuthorization_) {
    request.server = {settings_.user, settings_.password, serverChallenge_};
  }
  if (settings_.queryType == QueryPost) request.body = settings_.postData;
  return request;
}

void HttpQuery::BeginAnswer() {
  HttpAnswer::Options options;
  options.headOnly = settings_.queryType == QueryHeader;
  options.removeChunks = settings_.removeChunkHeader;
  answer_ = std::make_unique<HttpAnswer>(options, static_cast<HttpBodySink&>(*this));
  ended_ = reset_ = false;
  owner_.receivedBytes_ = 0;
}

bool HttpQuery::Send() {
  if (settings_.saveAsFile && !settings_.filename.empty() && !answer_->BodyInFile()) {
    const std::int32_t error = RemoveFile(settings_.filename);
    if (error != 0) return Fail(error, CanNotWrite(settings_.filename, error));
  }
  if (ended_) return true;
  owner_.waitForData_ = owner_.closeMeansEnd_ = sending_ = true;
  const std::string text = Request().Compose();
  const std::int32_t error = SocketOwner::Send(owner_.socket_, text, mark_);
  sending_ = false;
  if (!call_->alive) return false;
  // A server may answer and hang up before it has read everything: the answer may still be there.
  reset_ = error == kErrConnectionReset;
  return error == 0 || ended_ || reset_ || Fail(error);
}

bool HttpQuery::AwaitAnswer(bool& timeout) {
  const WaitEnd end = WaitUntil(mark_, SecondsFromNow(settings_.timeOutSeconds),
                                [&] { return !call_->alive || ended_ || owner_.lastErr_ != 0; });
  if (!call_->alive) return false;
  timeout = end == WaitEnd::TimedOut;
  if (end != WaitEnd::Done) return Fail(WaitError(end));
  if (owner_.lastErr_ != 0) return Fail(owner_.lastErr_, std::move(errorText_));
  if (answer_->Error() != 0) return FailAnswer();
  if (mark_.Cancelled()) return Fail(kErrCancelled);
  owner_.socket_.Disconnect();
  const std::int32_t error = file_.Finish();
  return error == 0 || Fail(error, CanNotWrite(file_.Path(), error));
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
  } else if (!serverAsked_ && settings_.sendAuthAfterChallenge &&
             line.find("401") != std::string_view::npos) {
    serverAsked_ = serverAuthorization_ = true;
    serverChallenge_ = ParseChallenge(header, "WWW-Authenticate");
  } else {
    return false;
  }
  if (answer_->BodyInFile()) RemoveFile(file_.Path());
  Forget();
  return true;
}

std::string HttpQuery::Finish() {
  const HttpStatus status = ParseStatusLine(answer_->FirstLine());
  owner_.httpResult_ = status.code;
  owner_.httpResultMsg_ = status.reason;
  Publish();
  owner_.bodyLen_ = answer_->BodyLength();
  if (answer_->BodyInFile()) TellFile();
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
  if (answer_ == nullptr || ended_) return;
  owner_.receivedBytes_ += static_cast<double>(BinData.size());
  try {
    answer_->Feed(BinData);
  } catch (const std::bad_alloc&) {
    answer_->Abandon();
    owner_.lastErr_ = kErrNoBuffers;
  }
  Publish();
  if (answer_->IsComplete() || answer_->Error() != 0) EndAnswer();
  if (owner_.events_ != nullptr) owner_.events_->Status(owner_, RemoteHostIP);
}

void HttpQuery::Closed() {
  if (answer_ == nullptr || ended_) return;
  const std::int32_t error = SocketOwner::CloseError(owner_.socket_);
  answer_->ConnectionEnded(reset_ ? kErrConnectionReset : error);
  EndAnswer();
}

void HttpQuery::EndAnswer() {
  ended_ = true;
  owner_.waitForData_ = false;
  // Whoever has answered reads no further: there is no need to send the rest.
  if (sending_) owner_.socket_.Disconnect();
}

bool HttpQuery::BeginBody() {
  const bool text = StartsWithIgnoreCase(answer_->ContentType(), "text/");
  if (text && !settings_.saveAsFile) return false;
  const std::int32_t error = settings_.filename.empty() ? file_.CreateTemporary("ansel", "tmp")
                                                        : file_.Create(settings_.filename);
  TellFile();
  if (error != 0) AbandonBody(error);
  return true;
}

// The properties tell where the body went, if that was not the caller's choice.
void HttpQuery::TellFile() {
  if (!settings_.saveAsFile) owner_.settings_.saveAsFile = owner_.automaticSave_ = true;
  if (!settings_.filename.empty()) return;
  owner_.settings_.filename = file_.Path();
  owner_.automaticName_ = true;
}

void HttpQuery::WriteBody(std::span<const std::uint8_t> bytes) {
  if (const std::int32_t error = file_.Write(bytes)) AbandonBody(error);
}

void HttpQuery::AbandonBody(std::int32_t error) {
  answer_->Abandon();
  owner_.lastErr_ = error;
  errorText_ = CanNotWrite(file_.Path(), error);
}

std::string HttpQuery::CanNotWrite(const std::string& path, std::int32_t error) {
  return "Can not write \"" + path + "\". " + SocketErrorText(error);
}

}  // namespace netro
