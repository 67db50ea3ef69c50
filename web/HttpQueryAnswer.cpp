// One HTTP query: the answer as it arrives, and where its body goes.
#include <algorithm>
#include <new>
#include <utility>

#include "platform/ErrorNumbers.h"
#include "socket/SocketErrors.h"
#include "support/OnException.h"
#include "support/Text.h"
#include "web/HttpPart.h"
#include "web/HttpQuery.h"

namespace netro {
namespace {

// A connection is worth reading so much that nobody wants.
constexpr double kMostDiscarded = 64 * 1024;
constexpr std::chrono::milliseconds kShortestPause(5);
PartialBody PartOf(const HttpHead& head) {
  PartialBody part;
  part.entityTag = head.Field("ETag").value_or("");
  part.lastModified = head.Field("Last-Modified").value_or("");
  part.date = head.Field("Date").value_or("");
  return part;
}

}  // namespace

void HttpQuery::BeginAnswer() {
  HttpAnswer::Options options;
  options.headOnly = method_ == "HEAD";
  options.removeChunks = settings_.removeChunkHeader;
  // With TLS nobody but the server can end it.
  options.resetMayEnd = url_.protocol != "https";
  answer_ = std::make_unique<HttpAnswer>(options, static_cast<HttpBodySink&>(*this));
  ended_ = reset_ = sentAll_ = closed_ = headKnown_ = sentNoted_ = false;
  deferred_.clear();
  owner_.receivedBytes_ = 0;
}

void HttpQuery::DataArrival(const Bytes& BinData, const std::string& RemoteHostIP) {
  if (answer_ == nullptr || ended_) return;
  lastArrival_ = Now();
  if (owner_.receivedBytes_ == 0) {
    answerBegun_ = lastArrival_;
    // The call that sends may not be back yet.
    if (sending_ && lastPiece_ && SocketOwner::SendLeft(*owner_.socket_) == 0) NoteSent();
    Note("first byte");
  }
  if (feeding_) return Defer(BinData);
  try {
    Feed(BinData);
  } catch (const std::bad_alloc&) {
    if (!call_->alive) throw;
    error_ = kErrNoBuffers;
  }
  if (!call_->alive) return;
  if (answer_->HeaderComplete()) PublishHead();
  Publish();
  if (answer_->IsComplete() || answer_->Error() != 0) EndAnswer();
  if (!ended_) Throttle();
  if (owner_.events_ != nullptr) owner_.events_->Status(owner_, RemoteHostIP);
}

// A Body event waits, and what comes meanwhile must wait for it: the block that it belongs to is
// not taken in to its end.
void HttpQuery::Defer(std::span<const std::uint8_t> block) {
  deferred_.insert(deferred_.end(), block.begin(), block.end());
  owner_.socket_->SocketIsBusy(true);
}

void HttpQuery::Feed(std::span<const std::uint8_t> block) {
  feeding_ = true;
  // What an event throws leaves the answer in pieces; a task that waits for it would go on.
  const OnException broken([this] {
    feeding_ = false;
    ended_ = true;
    answer_->Abandon();
    if (call_->alive) error_ = kErrCancelled;
  });
  owner_.receivedBytes_ += static_cast<double>(block.size());
  answer_->Feed(block);
  while (call_->alive && !deferred_.empty()) {
    const Bytes next = std::exchange(deferred_, {});
    owner_.receivedBytes_ += static_cast<double>(next.size());
    answer_->Feed(next);
    if (call_->alive && timer_ == 0) owner_.socket_->SocketIsBusy(false);
  }
  feeding_ = false;
  if (call_->alive && std::exchange(closed_, false)) Closed();
}

void HttpQuery::Closed() {
  if (answer_ == nullptr || ended_) return;
  closed_ = feeding_;
  if (feeding_) return;
  const std::int32_t error = SocketOwner::CloseError(*owner_.socket_);
  answer_->ConnectionEnded(reset_ ? kErrConnectionReset : error);
  EndAnswer();
}

void HttpQuery::EndAnswer() {
  ended_ = true;
  owner_.waitForData_ = false;
  // Whoever has answered reads no further: there is no need to send the rest.
  const bool left = !lastPiece_ || SocketOwner::SendLeft(*owner_.socket_) > 0;
  if (sending_ && left) owner_.socket_->Disconnect();
}

void HttpQuery::Publish() {
  owner_.headerLen_ = static_cast<std::int32_t>(answer_->Header().size());
  owner_.contentType_ = answer_->ContentType();
  owner_.closeMeansEnd_ = answer_->CloseMeansEnd();
  owner_.waitForDataLen_ = answer_->HeaderComplete() ? answer_->ExpectedLength() : 0;
  owner_.transferChunkOffset_ = answer_->NextChunk();
  owner_.firstChunk_ = !answer_->HeaderComplete();
}

HttpBodyTarget::Plan HttpQuery::BodyPlan() const {
  using Place = HttpBodyTarget::Place;
  HttpBodyTarget::Plan plan;
  plan.limit = options_.maxBodyLen;
  plan.file = settings_.filename;
  const bool text = options_.keepInMemory || StartsWithIgnoreCase(answer_->ContentType(), "text/");
  if (next_ == Next::Repeat) {
    plan.place = Place::Nowhere;
  } else if (options_.bodyToEvents) {
    plan.place = Place::Event;
  } else if (text && !settings_.saveAsFile) {
    plan.place = Place::Text;
  } else {
    plan.place = plan.file.empty() ? Place::Temporary : Place::File;
  }
  if (plan.place != Place::File || !settings_.saveAsFile) return plan;
  if (!options_.replaceWhenWhole && !options_.resume) return plan;
  // What a server says instead of the file is not what the file is replaced with.
  if (answer_->Status().code / 100 != 2) {
    plan.place = Place::Text;
    return plan;
  }
  plan.manner = options_.resume ? HttpBodyTarget::Manner::InParts
                                : HttpBodyTarget::Manner::WhenWhole;
  plan.had = goesOn_ ? part_.have : 0;
  if (goesOn_) plan.whole = whole_;
  plan.note = HttpPart::NoteOf(partUrl_, goesOn_ ? part_ : PartOf(answer_->Head()));
  return plan;
}

// Once, before the body: whoever takes that block by block has to know whose it is.
void HttpQuery::PublishHead() {
  if (std::exchange(headKnown_, true)) return;
  Note("answer", std::string(answer_->Head().FirstLine()));
  const HttpStatus& status = answer_->Status();
  owner_.httpResult_ = status.code;
  owner_.httpResultMsg_ = status.reason;
  owner_.header_ = answer_->Header();
}

void HttpQuery::BeginBody() {
  PublishHead();
  Decide();
  if (error_ != 0) return answer_->Abandon();
  std::int32_t error = target_.Open(BodyPlan());
  TellFile();
  const bool unpacks = options_.codings != nullptr && settings_.removeChunkHeader;
  if (error == 0 && unpacks && next_ != Next::Repeat) {
    const std::string coding = answer_->Head().Field("Content-Encoding").value_or("");
    error = target_.Chain().Open(*options_.codings, coding, options_.maxBodyLen);
  }
  if (error != 0) StopAnswer(error);
}

void HttpQuery::StopAnswer(std::int32_t error) {
  answer_->Abandon();
  error_ = error;
  errorText_ = target_.ErrorText().empty() ? target_.Chain().ErrorText() : target_.ErrorText();
}

bool HttpQuery::WriteBody(std::span<const std::uint8_t> bytes) {
  if (!call_->alive || error_ != 0) return true;
  if (next_ == Next::Repeat) {
    // Reading on would cost more than another connection.
    if (answer_->BodyLength() > kMostDiscarded) answer_->Abandon(), EndAnswer();
    return true;
  }
  bool kept = true;
  const std::int32_t error = target_.Write(
      bytes,
      [this](std::span<const std::uint8_t> piece) {
        if (call_->alive && owner_.events_ != nullptr) owner_.events_->Body(owner_, piece);
        // A small block may unpack for seconds, in which nothing else would ask.
        const bool goesOn = call_->alive && !mark_.Cancelled();
        return goesOn ? 0 : static_cast<std::int32_t>(kErrCancelled);
      },
      [this](std::span<const std::uint8_t> piece) { answer_->AppendToText(piece); }, kept);
  if (!call_->alive) {
    answer_->Abandon();
    return true;
  }
  TellFile();
  if (error != 0) StopAnswer(error);
  return kept;
}

// The properties tell where the body went, if that was not the caller's choice.
void HttpQuery::TellFile() {
  if (!target_.HasFile()) {
    if (std::exchange(owner_.automaticSave_, false)) owner_.settings_.saveAsFile = false;
    if (std::exchange(owner_.automaticName_, false)) owner_.settings_.filename.clear();
    return;
  }
  if (!settings_.saveAsFile) owner_.settings_.saveAsFile = owner_.automaticSave_ = true;
  if (!settings_.filename.empty()) return;
  owner_.settings_.filename = target_.Path();
  owner_.automaticName_ = true;
}

// Leaves what arrives with the system until the average is down again.
void HttpQuery::Throttle() {
  if (options_.maxBytesPerSecond == 0 || timer_ != 0) return;
  const double seconds = owner_.receivedBytes_ / static_cast<double>(options_.maxBytesPerSecond);
  const auto due = answerBegun_ + std::chrono::duration_cast<std::chrono::nanoseconds>(
                                      std::chrono::duration<double>(seconds));
  const auto pause = std::chrono::ceil<std::chrono::milliseconds>(due - Now());
  if (pause < kShortestPause) return;
  owner_.socket_->SocketIsBusy(true);
  lastArrival_ = due;  // the pause is not the server's
  timer_ = mark_.MessageLoop().SetTimer(static_cast<std::int32_t>(pause.count()), [this] {
    mark_.MessageLoop().KillTimer(std::exchange(timer_, 0));
    if (call_->alive && owner_.socket_ != nullptr) owner_.socket_->SocketIsBusy(false);
  });
}

}  // namespace netro
