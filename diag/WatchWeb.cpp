#include "diag/WatchWeb.h"

#include <netro/HTTPCls.h>

#include <algorithm>
#include <utility>

#include "platform/ErrorNumbers.h"
#include "socket/SocketErrors.h"
#include "support/Url.h"

namespace netro {
namespace {

constexpr std::size_t kMostSearched = std::size_t{1} << 20;
constexpr std::int32_t kFirstFinal = 200;  // interim answers come before (RFC 9110, section 15.2)
constexpr std::int32_t kUnauthorized = 401;

// Ends the query as soon as it is known what there is to know.
class PageProbe final : private HTTPClsEvents {
 public:
  PageProbe(const WatchTarget& target, const WatchProbeTools& tools)
      : target_(target), isLoggedIn_(SplitUrl(target.host).url.hasUserInfo) {
    http_.Events(this);
    http_.URL(target.host);
    http_.Tls(tools.tls);
    http_.TimeOutSeconds(static_cast<std::int32_t>(tools.timeout.count()));
    http_.SendAuthAfterChallenge(isLoggedIn_);
    http_.BodyToEvents(true);
    http_.AddHeader("Connection", "close");
  }

  ProbeResult Run() {
    bool timeout = false;
    const TimePoint begun = Now();
    const std::string text = http_.HTTPQuery(timeout);
    const std::int32_t error = enough_ ? 0 : http_.LastErr();
    if (IsOwnLack(error)) return LackOf(error);
    if (error != 0) return FailureOf(ErrorText(error, text));
    if (!IsWanted()) return FailureOf("HTTP answer: " + HarmlessText(StatusLine()));
    if (!IsFound()) return FailureOf("HTTP answer without '" + target_.text + "'");
    ProbeResult result = SuccessAfter(Now() - begun);
    return target_.kind == WatchKind::Https ? CheckDays(std::move(result)) : result;
  }

 private:
  void Status(HTTPCls& /*ParentObj*/, const std::string& /*RemoteHostIP*/) override {
    code_ = http_.HTTPResult();
    if (code_ < kFirstFinal || (isLoggedIn_ && code_ == kUnauthorized)) return;
    if (!IsWanted() || IsFound() || searched_ > kMostSearched) Stop();
  }

  void Body(HTTPCls& /*ParentObj*/, std::span<const std::uint8_t> BinData) override {
    if (found_ || target_.text.empty()) return;
    searched_ += BinData.size();
    tail_.append(BinData.begin(), BinData.end());
    found_ = tail_.find(target_.text) != std::string::npos;
    tail_.erase(0, tail_.size() - std::min(tail_.size(), target_.text.size()));
  }

  void Stop() {
    enough_ = true;
    http_.StopWaiting();
  }

  bool IsWanted() const { return code_ >= target_.lowestStatus && code_ <= target_.highestStatus; }
  bool IsFound() const { return found_ || target_.text.empty(); }

  std::string StatusLine() const {
    const auto& moments = http_.Timeline();
    const auto last = std::find_if(moments.rbegin(), moments.rend(), [](const HTTPMoment& moment) {
      return moment.What == "answer";
    });
    return last == moments.rend() ? std::string() : last->Detail;
  }

  static std::string ErrorText(std::int32_t error, const std::string& text) {
    const bool isOfSocket = error < tlsExpired && error != kErrBadProtocolOption;
    return isOfSocket || text.empty() ? SocketErrorText(error) : HarmlessText(text);
  }

  ProbeResult CheckDays(ProbeResult result) const {
    const TlsInfo info = http_.TlsInfo();
    if (info.subject.empty()) return result;  // an earlier session that goes on
    const std::string days = std::to_string(info.daysLeft) + " days left of the certificate";
    if (info.daysLeft < target_.daysLeft) return FailureOf("Only " + days);
    result.text += ", " + days;
    return result;
  }

  const WatchTarget& target_;
  const bool isLoggedIn_;
  HTTPCls http_;
  bool enough_ = false;
  bool found_ = false;
  std::int32_t code_ = 0;  // of the last answer
  std::size_t searched_ = 0;
  std::string tail_;
};

}  // namespace

std::string WhyNoUrl(const WatchTarget& target) {
  const UrlResult split = SplitUrl(target.host);
  if (!split.error.empty()) return "URL: " + split.error;
  if (split.url.protocol == "http" || target.kind == WatchKind::Https) return {};
  return "URL: the protocol \"" + split.url.protocol + "\" is not supported.";
}

ProbeResult FetchPage(const WatchTarget& target, const WatchProbeTools& tools) {
  return PageProbe(target, tools).Run();
}

}  // namespace netro
