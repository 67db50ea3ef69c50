// One HTTP query: its request, header and body.
#include <algorithm>
#include <array>
#include <charconv>
#include <utility>

#include "platform/ErrorNumbers.h"
#include "support/Text.h"
#include "web/HttpQuery.h"

namespace netro {
namespace {

constexpr std::size_t kSentWithHeader = 64 * 1024;
constexpr std::size_t kPiece = 256 * 1024;
constexpr std::uint64_t kLongBody = 1 << 20;
constexpr std::chrono::seconds kContinueTime(1);

std::string ChunkHead(std::size_t size) {
  std::array<char, 16> digits;
  const auto end = std::to_chars(digits.begin(), digits.end(), size, 16).ptr;
  return std::string(digits.begin(), end) + "\r\n";
}

}  // namespace

HttpRequest HttpQuery::Request() {
  HttpRequest request;
  request.method = method_;
  request.url = url_;
  request.absoluteForm = UsesHttpProxy() && !UsesTunnel();
  request.token = settings_.httpToken;
  request.headers = settings_.headers;
  request.bareEnd = options_.keepAlive;
  // A SOCKS proxy's credentials are for the SOCKS proxy, and those of no proxy for nobody. What
  // goes through a tunnel is none of the proxy's business.
  if (proxyLogin_.send && !settings_.proxyUser.empty() && request.absoluteForm) {
    request.proxy = {settings_.proxyUser, settings_.proxyPassword, proxyLogin_.challenge, Form()};
  }
  if (url_.hasUserInfo) {
    request.server = {url_.user, url_.password, serverLogin_.challenge, Form()};
  } else if (serverLogin_.send && ownOrigin_) {
    request.server = {settings_.user, settings_.password, serverLogin_.challenge, Form()};
  }
  if (hasBody_) request.bodyLength = body_ != nullptr ? body_->Length() : settings_.postData->size();
  request.chunked = hasBody_ && !request.bodyLength;
  // A tunnel would carry it to the server.
  if (UsesTunnel()) std::erase_if(request.headers, IsForProxy);
  AddOwnFields(request);
  return request;
}

// The caller's own lines go before these.
void HttpQuery::AddOwnFields(HttpRequest& request) {
  const auto add = [&](const char* name, std::string value) {
    const auto same = [&](const auto& field) { return EqualsIgnoreCase(field.first, name); };
    if (value.empty() || std::ranges::any_of(request.headers, same)) return;
    request.headers.emplace_back(name, std::move(value));
  };
  const auto rest = ResumeFields(part_);
  asksRest_ = !rest.empty();
  for (const auto& [name, value] : rest) add(name.c_str(), value);
  if (asksRest_) add("Accept-Encoding", "identity");
  // A body that keeps its framing is not unpacked.
  const bool unpacks = options_.codings != nullptr && settings_.removeChunkHeader;
  if (unpacks) add("Accept-Encoding", options_.codings->Codings());
  if (options_.cookies != nullptr) add("Cookie", options_.cookies->CookieHeader(urlText_));
  expect_ = body_ != nullptr && !refuseExpect_ && request.bodyLength.value_or(kLongBody) >= kLongBody;
  if (expect_) add("Expect", "100-continue");
}

TimePoint HttpQuery::SendDeadline() const {
  const TimePoint whole = SecondsFromNow(settings_.timeOutSeconds);
  const auto idle = options_.idleTimeout;
  return idle > idle.zero() ? std::min(whole, MillisecondsFromNow(idle)) : whole;
}

bool HttpQuery::Send() {
  const bool removes = settings_.saveAsFile && !settings_.filename.empty() && !target_.HasFile() &&
                       !options_.replaceWhenWhole && !options_.resume;
  if (removes) {
    if (const std::int32_t error = RemoveFile(settings_.filename)) {
      return Fail(error, HttpBodyTarget::CanNotWrite(settings_.filename, error));
    }
  }
  if (ended_) return true;
  owner_.waitForData_ = owner_.closeMeansEnd_ = sending_ = true;
  sentAll_ = false;
  const std::int32_t error = SendRequest();
  sending_ = false;
  if (!call_->alive) return false;
  // A server may answer and hang up before it has read everything: the answer may still be there.
  reset_ = error == kErrConnectionReset;
  if (sentAll_) NoteSent();
  return error == 0 || ended_ || reset_ || Fail(error, std::move(errorText_));
}

void HttpQuery::NoteSent() {
  if (!std::exchange(sentNoted_, true)) Note("sent");
}

// The beginning of the body goes out together with the header, so a short request is one segment;
// the rest goes out from where it is.
std::int32_t HttpQuery::SendRequest() {
  std::string text = Request().ComposeHead();
  if (body_ != nullptr) {
    const std::int32_t error = SendPiece(text, false);
    return error != 0 || ended_ || !AwaitContinue() ? error : SendBody();
  }
  const std::string_view body = hasBody_ ? std::string_view(*settings_.postData) : "";
  const std::size_t together = std::min(body.size(), kSentWithHeader);
  text += body.substr(0, together);
  std::int32_t error = SendPiece(text, together == body.size());
  const std::size_t piece = options_.idleTimeout.count() > 0 ? kPiece : body.size();
  for (std::size_t at = together; error == 0 && call_->alive && !ended_ && at < body.size();) {
    const std::string_view next = body.substr(at, piece);
    at += next.size();
    error = SendPiece(next, at == body.size());
  }
  return error;
}

std::int32_t HttpQuery::SendPiece(std::string_view piece, bool last) {
  lastPiece_ = last;
  const TimePoint deadline = SendDeadline();
  const std::int32_t error = SocketOwner::Send(*owner_.socket_, piece, mark_, deadline);
  if (!call_->alive) return kErrCancelled;
  sentAll_ = last && error == 0;
  return error;
}

// False when the server has answered instead of asking for the body.
bool HttpQuery::AwaitContinue() {
  if (!expect_) return call_->alive;
  const auto answered = [this] {
    return !call_->alive || ended_ || answer_->HeaderComplete() || answer_->Continues();
  };
  if (WaitUntil(mark_, Now() + kContinueTime, answered) == WaitEnd::Cancelled) return false;
  if (!call_->alive || ended_ || answer_->HeaderComplete()) return false;
  if (answer_->Continues()) Note("continue");
  return true;
}

std::int32_t HttpQuery::SendBody() {
  const bool chunked = !body_->Length();
  std::uint64_t left = body_->Length().value_or(0);
  Bytes room(kPiece);
  for (;;) {
    std::size_t got = 0;
    const std::int32_t failed = body_->Read(room, got);
    if (!call_->alive) return kErrCancelled;
    if (failed != 0) {
      errorText_ = body_->ErrorText();
      owner_.socket_->Disconnect();
      return failed;
    }
    std::string text(reinterpret_cast<const char*>(room.data()), got);
    if (chunked) text = ChunkHead(got) + text + "\r\n";
    if (got > 0 || chunked) {
      const bool last = chunked ? got == 0 : (left -= got) == 0;
      if (const std::int32_t error = SendPiece(text, last)) return error;
    }
    if (ended_ || got == 0) break;
  }
  return 0;
}

}  // namespace netro
