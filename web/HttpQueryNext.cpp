// One HTTP query: what the header of an answer makes of it. Decided before the body has gone
// anywhere.
#include <algorithm>
#include <utility>

#include "platform/ErrorNumbers.h"
#include "socket/SocketErrors.h"
#include "support/Text.h"
#include "support/UrlReference.h"
#include "web/HttpPart.h"
#include "web/HttpQuery.h"
#include "web/HttpRedirect.h"
#include "web/HttpTimeline.h"

namespace netro {
namespace {

constexpr std::int32_t kPartial = 206;
constexpr std::size_t kMostCookies = 50;  // of one answer
constexpr std::int32_t kServerRefusal = 401;
constexpr std::int32_t kProxyRefusal = 407;
constexpr std::int32_t kExpectationFailed = 417;

}  // namespace

void HttpQuery::Decide() {
  if (next_) return;
  const HttpHead head = answer_->Head();
  const std::int32_t code = answer_->Status().code;
  TakeCookies(head);
  const bool repeats = Refused(code, head) || Redirected(code, head) ||
                       WithoutExpectation(code) || Resumed(code, head);
  next_ = repeats ? Next::Repeat : Next::Return;
}

void HttpQuery::TakeCookies(const HttpHead& head) {
  if (options_.cookies == nullptr) return;
  std::vector<std::string> cookies = head.Lines("Set-Cookie");
  cookies.resize(std::min(cookies.size(), kMostCookies));
  for (const std::string& cookie : cookies) options_.cookies->Take(cookie, urlText_);
}

bool HttpQuery::CanRepeatBody() {
  if (body_ == nullptr || body_->Rewind()) return true;
  return Stop(kErrInvalidArgument,
              "The server wants the request's body once more, which can be read only once.");
}

// Ends the query. Returns false: nothing is repeated.
bool HttpQuery::Stop(std::int32_t error, std::string text) {
  error_ = error;
  errorText_ = std::move(text);
  return false;
}

bool HttpQuery::Refused(std::int32_t code, const HttpHead& head) {
  bool repeats = false;
  if (code == kProxyRefusal && UsesHttpProxy() && !UsesTunnel()) {
    repeats = proxyLogin_.Refused(ParseChallenges(head, "Proxy-Authenticate"), Form());
  } else if (code == kServerRefusal && settings_.sendAuthAfterChallenge &&
             (ownOrigin_ || url_.hasUserInfo)) {
    repeats = serverLogin_.Refused(ParseChallenges(head, "WWW-Authenticate"), Form());
  }
  if (!repeats || !CanRepeatBody()) return false;
  Note("login", code == kProxyRefusal ? "proxy" : "server");
  return true;
}

bool HttpQuery::Redirected(std::int32_t code, const HttpHead& head) {
  const auto redirect = RedirectOf(code, method_);
  if (options_.maxRedirects <= 0 || !redirect) return false;
  const std::vector<std::string> places = head.Lines("Location");
  if (places.empty()) return false;
  if (redirects_++ == options_.maxRedirects) {
    return Stop(kErrLoop, "More than " + std::to_string(options_.maxRedirects) +
                              " redirects; the next one leads to " + WithoutSecrets(places[0]) +
                              ".");
  }
  if (redirect->keepsBody && hasBody_ && !CanRepeatBody()) return false;
  if (!redirect->keepsBody) DropBody();
  method_ = redirect->method;
  return FollowTo(ResolveReference(urlText_, places[0]), code);
}

// Credentials, and what else is the caller's own, stay with the origin that they were meant for.
bool HttpQuery::FollowTo(std::string place, std::int32_t code) {
  UrlResult split = SplitUrl(place);
  Url& next = split.url;
  if (!split.error.empty() || (next.protocol != "http" && next.protocol != "https")) {
    return Stop(kErrBadProtocolOption, "The server redirects to \"" + WithoutSecrets(place) +
                                           "\", which can not be followed.");
  }
  next.port = EffectivePort(next);
  const bool same = SameOrigin(url_, next);
  if (!same) LeaveOrigin();
  if (same && !next.hasUserInfo && url_.hasUserInfo) {
    next.user = url_.user;
    next.password = url_.password;
    next.hasUserInfo = true;
  }
  serverLogin_ = {};
  serverLogin_.send = ownOrigin_ && settings_.sendAuthAfterChallenge;
  SetUrl(std::move(next));
  Note("redirect", std::to_string(code) + ' ' + WithoutSecretParameters(urlText_));
  return CheckProtocol() || Stop(kErrProtocolNotSupported, std::move(errorText_));
}

void HttpQuery::LeaveOrigin() {
  ownOrigin_ = false;
  std::erase_if(settings_.headers, [](const auto& field) { return !MayLeaveOrigin(field.first); });
}

void HttpQuery::DropBody() {
  hasBody_ = false;
  body_.reset();
  std::erase_if(settings_.headers, [](const auto& field) {
    return StartsWithIgnoreCase(field.first, "Content-");
  });
}

bool HttpQuery::WithoutExpectation(std::int32_t code) {
  if (code != kExpectationFailed || !expect_ || refuseExpect_) return false;
  refuseExpect_ = true;
  return CanRepeatBody();
}

// What an answer to the request for the rest means. True when it is to be asked for anew, whole.
bool HttpQuery::Resumed(std::int32_t code, const HttpHead& head) {
  goesOn_ = false;
  // A part that nobody has asked for must not become the file.
  const auto isRange = [](const auto& field) { return EqualsIgnoreCase(field.first, "Range"); };
  const bool unasked = options_.resume && code == kPartial &&
                       std::ranges::none_of(settings_.headers, isRange);
  if (!asksRest_ && !unasked) return false;
  RangeAnswer answer;
  answer.status = code;
  answer.contentRange = head.Field("Content-Range").value_or("");
  answer.contentType = answer_->ContentType();
  answer.entityTag = head.Field("ETag").value_or("");
  answer.lastModified = head.Field("Last-Modified").value_or("");
  answer.contentCoding = head.Field("Content-Encoding").value_or("");
  if (answer_->ExpectedLength() >= 0) {
    answer.contentLength = static_cast<std::uint64_t>(answer_->ExpectedLength());
  }
  const ResumeDecision decision = DecideResume(part_, answer);
  if (decision.step == ResumeStep::Refuse) return Stop(kErrBadProtocolOption, decision.error);
  goesOn_ = decision.step == ResumeStep::Continue;
  whole_ = decision.total.value_or(0);
  if (goesOn_) Note("resumed", std::to_string(part_.have) + " bytes");
  if (decision.step != ResumeStep::AskAgain && decision.step != ResumeStep::Complete) return false;
  HttpPart::Forget(settings_.filename);
  part_ = {};
  return true;
}

}  // namespace netro
