// One HTTP query, step by step.
//
//   settings checked → URL split → [connect → SOCKS prolog → request sent → answer awaited] →
//   result
//
// The part in brackets is an exchange. A 407 answer repeats it once with the proxy's credentials, a
// 401 answer once with the server's, each time on a new connection; so there are at most three, or
// five with standard Digest, whose nonces may be renewed once each.
//
// Every step that waits may find the HTTPCls deleted afterwards: it returns false then, and Run
// touches nothing of the owner. A step that fails has closed the socket, removed a half-written
// file, and left number and text.
#include "web/HttpQuery.h"

#include <netro/Localization.h>

#include <algorithm>
#include <utility>

#include "platform/ErrorNumbers.h"
#include "socket/SocketErrors.h"
#include "support/OnException.h"

namespace netro {
namespace {

constexpr std::size_t kSentWithHeader = 64 * 1024;
constexpr std::int32_t kServerRefusal = 401;
constexpr std::int32_t kProxyRefusal = 407;

}  // namespace

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
  do {
    repeat_ = false;
    succeeded = succeeded && Exchange(timeout);
  } while (succeeded && repeat_);
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

bool HttpQuery::Exchange(bool& timeout) { return Open() && Send() && AwaitAnswer(timeout); }

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

void HttpQuery::BeginAnswer() {
  HttpAnswer::Options options;
  options.headOnly = settings_.queryType == QueryHeader;
  options.removeChunks = settings_.removeChunkHeader;
  answer_ = std::make_unique<HttpAnswer>(options, static_cast<HttpBodySink&>(*this));
  ended_ = reset_ = hasFile_ = false;
  owner_.receivedBytes_ = 0;
}

bool HttpQuery::Send() {
  if (settings_.saveAsFile && !settings_.filename.empty() && !hasFile_) {
    const std::int32_t error = RemoveFile(settings_.filename);
    if (error != 0) return Fail(error, CanNotWrite(settings_.filename, error));
  }
  if (ended_) return true;
  owner_.waitForData_ = owner_.closeMeansEnd_ = sending_ = true;
  const std::int32_t error = SendRequest();
  sending_ = false;
  if (!call_->alive) return false;
  // A server may answer and hang up before it has read everything: the answer may still be there.
  reset_ = error == kErrConnectionReset;
  return error == 0 || ended_ || reset_ || Fail(error);
}

// The beginning of the body goes out together with the header, so a short request is one segment;
// the rest goes out from where it is.
std::int32_t HttpQuery::SendRequest() {
  const TimePoint deadline = SecondsFromNow(settings_.timeOutSeconds);
  const HttpRequest request = Request();
  const std::string_view body = request.body.value_or("");
  const std::size_t together = std::min(body.size(), kSentWithHeader);
  std::string text = request.ComposeHead();
  text += body.substr(0, together);
  std::int32_t error = SocketOwner::Send(owner_.socket_, text, mark_, deadline);
  if (error != 0 || !call_->alive || ended_ || together == body.size()) return error;
  return SocketOwner::Send(owner_.socket_, body.substr(together), mark_, deadline);
}

bool HttpQuery::AwaitAnswer(bool& timeout) {
  const WaitEnd end = WaitUntil(mark_, SecondsFromNow(settings_.timeOutSeconds),
                                [&] { return !call_->alive || ended_ || owner_.lastErr_ != 0; });
  if (!call_->alive) return false;
  timeout = end == WaitEnd::TimedOut;
  if (end != WaitEnd::Done) return Fail(WaitError(end));
  if (owner_.lastErr_ != 0) return Fail(owner_.lastErr_, std::move(errorText_));
  if (mark_.Cancelled()) return Fail(kErrCancelled);
  if (Refused()) return true;
  if (answer_->Error() != 0) return FailAnswer();
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

// True when the answer asks for credentials and the exchange is to be repeated with them. Its
// header is enough for that: of a server that closes at once, the rest may have been lost.
bool HttpQuery::Refused() {
  const bool usable = answer_->IsComplete() ||
                      (answer_->HeaderComplete() && answer_->Error() == kErrConnectionReset);
  if (!usable) return false;
  const std::int32_t code = answer_->Status().code;
  const HttpHead head = answer_->Head();
  if (code == kProxyRefusal && UsesHttpProxy()) {
    repeat_ = proxyLogin_.Refused(ParseChallenges(head, "Proxy-Authenticate"), Form());
  } else if (code == kServerRefusal && settings_.sendAuthAfterChallenge) {
    repeat_ = serverLogin_.Refused(ParseChallenges(head, "WWW-Authenticate"), Form());
  }
  if (repeat_) {
    owner_.socket_.Disconnect();
    Forget();
  }
  return repeat_;
}

std::string HttpQuery::Finish() {
  const HttpStatus status = answer_->Status();
  owner_.httpResult_ = status.code;
  owner_.httpResultMsg_ = status.reason;
  Publish();
  owner_.bodyLen_ = answer_->BodyLength();
  if (hasFile_) TellFile();
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

}  // namespace netro
