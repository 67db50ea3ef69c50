// One HTTP query, step by step.
//
//   settings checked → URL split → [connection opened or taken → request sent → answer awaited] →
//   result
//
// The part in brackets is an exchange. It is repeated with credentials, for a redirect, without an
// expectation that was refused, for a part that has changed, or on a new connection when a kept one
// was gone; each of them a limited number of times. Whether it is, the header of the answer decides
// (HttpQueryNext.cpp), before its body has gone anywhere.
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
#include "web/HttpTimeline.h"

namespace netro {
namespace {

constexpr std::size_t kMostMoments = 1'000;
constexpr std::size_t kLongestDetail = 4'000;  // a server could fill the memory with them

}  // namespace

HttpQuery::HttpQuery(HTTPCls& owner)
    : owner_(owner),
      call_(owner.call_),
      mark_(owner.module_, owner.call_),
      options_(owner.options_),
      limit_(options_.totalTimeout.count() > 0 ? MillisecondsFromNow(options_.totalTimeout)
                                               : TimePoint::max()) {
  mark_.LimitTo(limit_);
  target_.Discard();
  TellFile();
  settings_ = owner.settings_;
}

HttpQuery::~HttpQuery() {
  if (timer_ != 0) mark_.MessageLoop().KillTimer(timer_);
}

std::string HttpQuery::Run(bool& timeout) {
  const OnException giveUp([this] {
    if (call_->alive) GiveUp();
  });
  timeout = false;
  Reset();
  // Deep inside other calls it is left out: what it delivers may make one more call. Beside tasks
  // the loop goes on anyway.
  if (mark_.Task() == nullptr && mark_.MessageLoop().MayPumpAside())
    mark_.MessageLoop().PumpMessages();
  bool succeeded = call_->alive && CheckSettings() && Prepare();
  do {
    succeeded = succeeded && Exchange(timeout);
  } while (succeeded && next_ == Next::Repeat);
  if (!call_->alive) return SocketErrorText(kErrCancelled);
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
  owner_.header_.clear();
  owner_.finalURL_.clear();
  owner_.tlsInfo_ = {};
  owner_.timeline_.clear();
  if (owner_.socket_ != nullptr) owner_.socket_->Disconnect();
}

void HttpQuery::Note(std::string_view what, std::string detail) {
  if (!call_->alive || owner_.timeline_.size() == kMostMoments) return;
  detail.resize(std::min(detail.size(), kLongestDetail));
  std::ranges::replace_if(
      detail, [](char c) { return static_cast<unsigned char>(c) < 0x20 || c == 0x7F; }, '?');
  const std::chrono::duration<double, std::milli> since = Now() - begun_;
  owner_.timeline_.push_back({since.count(), what, std::move(detail)});
}

void HttpQuery::GiveUp() {
  if (owner_.socket_ != nullptr) {
    owner_.socket_->Events(nullptr);
    owner_.socket_->Disconnect();
  }
  target_.GiveUp();
  TellFile();
  owner_.headerLen_ = 0;
  owner_.httpResult_ = 0;
  owner_.httpResultMsg_.clear();
  owner_.header_.clear();
  owner_.contentType_.clear();
  owner_.waitForConnect_ = owner_.waitForSocksData_ = owner_.waitForData_ = false;
}

bool HttpQuery::Fail(std::int32_t error, std::string text) {
  GiveUp();
  owner_.lastErr_ = error_ = error;
  if (text.empty() && error == kErrTimedOut && Now() >= limit_) text = TextOfLimit();
  errorText_ = text.empty() ? SocketErrorText(error) : std::move(text);
  Note("error", errorText_);
  return false;
}

std::string HttpQuery::TextOfLimit() const {
  const auto limit = options_.totalTimeout;
  std::string seconds = std::to_string(limit.count() / 1000);
  if (limit.count() % 1000 != 0)
    seconds += '.' + std::to_string(1000 + limit.count() % 1000).substr(1);
  return "The whole query has taken longer than TotalTimeout, " + seconds + " seconds.";
}

bool HttpQuery::Exchange(bool& timeout) {
  next_.reset();
  Note("request", method_ + ' ' + WithoutSecretParameters(urlText_));
  return Open() && Send() && AwaitAnswer(timeout);
}

WaitEnd HttpQuery::AwaitEnd() {
  const auto ended = [this] { return !call_->alive || ended_ || error_ != 0; };
  const TimePoint deadline = SecondsFromNow(settings_.timeOutSeconds);
  const auto idle = options_.idleTimeout;
  if (idle.count() <= 0) return WaitUntil(mark_, deadline, ended);
  lastArrival_ = std::max(lastArrival_, Now());
  for (;;) {
    const TimePoint due = std::min(deadline, lastArrival_ + idle);
    const WaitEnd end = WaitUntil(mark_, due, ended);
    if (end != WaitEnd::TimedOut || mark_.Expired(std::min(deadline, lastArrival_ + idle))) {
      return end;
    }
  }
}

bool HttpQuery::AwaitAnswer(bool& timeout) {
  const WaitEnd end = AwaitEnd();
  if (!call_->alive) return false;
  timeout = end == WaitEnd::TimedOut;
  if (end != WaitEnd::Done) return Fail(WaitError(end));
  if (error_ != 0) return Fail(error_, std::move(errorText_));
  if (mark_.Cancelled()) return Fail(kErrCancelled);
  return Conclude();
}

// The exchange is over: its answer is whole, or as much of it as there will be.
bool HttpQuery::Conclude() {
  if (WasLost()) {
    next_ = Next::Repeat;
    onlyNew_ = true;
    Note("repeated");
    owner_.socket_->Disconnect();
    return true;
  }
  // A header is enough for a repetition: of a server that closes at once, the rest may be lost.
  const bool cut = answer_->HeaderComplete() && answer_->Error() == kErrConnectionReset;
  if (answer_->IsComplete() || cut) Decide();
  if (error_ != 0) return Fail(error_, std::move(errorText_));
  if (next_ == Next::Repeat) {
    LeaveConnection();
    target_.Discard();
    TellFile();
    return true;
  }
  if (answer_->Error() != 0) {
    const std::string text = answer_->ErrorText();
    Fail(answer_->Error(), text);
    errorText_ = text;  // empty when the server hung up without a word
    return false;
  }
  LeaveConnection();
  const std::int32_t error = target_.Finish();
  return error == 0 || Fail(error, target_.ErrorText());
}

std::string HttpQuery::Finish() {
  owner_.lastErr_ = 0;  // a refused query of this object may have left its error
  PublishHead();
  Publish();
  owner_.bodyLen_ = target_.Length();
  owner_.finalURL_ = urlText_;
  TellFile();
  if (owner_.socket_ != nullptr) owner_.socket_->Events(nullptr);
  Note("end", std::to_string(static_cast<std::uint64_t>(owner_.bodyLen_)) + " bytes");
  return answer_->TakeText();
}

}  // namespace netro
