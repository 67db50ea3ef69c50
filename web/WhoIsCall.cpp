#include "web/WhoIsCall.h"

#include <netro/Localization.h>

#include <algorithm>
#include <chrono>
#include <utility>

#include "platform/ErrorNumbers.h"
#include "socket/SocketErrors.h"
#include "socket/StreamExchange.h"
#include "support/Text.h"
#include "support/Url.h"
#include "web/PublicAddress.h"

namespace netro {
namespace {

constexpr std::size_t kLargestAnswer = 64 * 1024 * 1024;
constexpr std::size_t kMostReferrals = 5;
constexpr std::int32_t kTextCanNotConnect = 7500;
constexpr std::int32_t kErrNotPublic = 10013;

// Cancelling and waiting in vain have texts of their own.
std::string ConnectText(const ConnectionPlan& plan, std::int32_t error) {
  if (error == kErrCancelled || error == kErrTimedOut) return {};
  const bool direct = plan.socks == SocksKind::None;
  return GetMessageText(kTextCanNotConnect, {FormatEndpoint(direct ? plan.host : plan.proxyHost,
                                                            direct ? plan.port : plan.proxyPort),
                                             std::to_string(error), SocketErrorText(error)});
}

}  // namespace

// The answer ends with the connection. It is the object's Result while it comes.
class WhoIsQuery final : public StreamExchange {
 public:
  WhoIsQuery(WhoIsCls& owner, std::shared_ptr<CallState> call, const std::string& query,
             std::size_t most, const CancelMark& mark)
      : StreamExchange(mark),
        owner_(owner),
        call_(std::move(call)),
        request_(query + "\r\n"),
        most_(most) {}

 private:
  std::string Request() override { return request_; }

  void Arrived(std::span<const std::uint8_t> bytes) override {
    if (!call_->alive) return;
    Progress();
    std::string& text = owner_.answers_.back().Text;
    const auto taken = bytes.first(std::min(bytes.size(), most_ - text.size()));
    text.append(reinterpret_cast<const char*>(taken.data()), taken.size());
    if (taken.size() < bytes.size()) End(kErrMessageTooLong);
  }

  std::int32_t PeerClosed(std::int32_t error) override { return error; }

  WhoIsCls& owner_;
  const std::shared_ptr<CallState> call_;
  const std::string request_;
  const std::size_t most_;
};

WhoIsCall::WhoIsCall(WhoIsCls& owner)
    : owner_(owner),
      call_(owner.call_),
      mark_(owner.module_, owner.call_),
      table_(owner.table_),
      follow_(owner.follow_),
      followPrivate_(owner.followPrivate_),
      maxAnswer_(owner.maxAnswer_ > 0 ? static_cast<std::size_t>(owner.maxAnswer_)
                                      : kLargestAnswer),
      sink_(owner.answerSink_),
      limit_(owner.totalTimeout_.count() > 0 ? MillisecondsFromNow(owner.totalTimeout_)
                                             : TimePoint::max()) {
  owner.answers_.clear();
  owner.lastErr_ = 0;
  owner.lastErrMsg_.clear();
  plan_.wait = owner.timeout_;
  plan_.limit = limit_;
  plan_.lookup = {owner.dnsURL_, owner.preference_};
}

bool WhoIsCall::Run(const std::string& host, const std::string& query) {
  if (!Begin(host, query)) return false;
  bool good = true;
  for (bool referred = false; next_; referred = true) {
    const WhoIsServer server = *std::exchange(next_, std::nullopt);
    const bool named = !referred && !host.empty();
    const std::string asked = named || !table_ ? query : table_->QueryFor(server, query);
    good = AskOne(server, asked, referred);
    if (!call_->alive) return false;
  }
  return good;
}

// Finds the first server.
bool WhoIsCall::Begin(const std::string& host, const std::string& query) {
  const auto fail = [&](std::string text) { return owner_.Fail(kErrInvalidArgument, text); };
  if (HasControl(query)) return fail("Query must not hold CR, LF or NUL.");
  if (owner_.totalTimeout_.count() < 0) return fail("TotalTimeout must not be negative.");
  WhoIsServer first{{}, owner_.port_};
  if (host.empty() && table_) {
    const auto found = table_->ServerFor(query);
    if (!found) return fail("The table names no server for this query.");
    first = *found;
  } else {
    const UrlResult split = SplitUrl(host);
    if (!split.error.empty()) return fail("Host: " + split.error);
    first.host = split.url.host;
    if (split.url.hasPort) first.port = split.url.port;
  }
  if (first.port < 1 || first.port > 65535) {
    return fail("Port " + std::to_string(first.port) + " is no port.");
  }
  if (!PlanProxy(owner_.Proxy(), plan_)) {
    return fail(
        "ProxyType is none of the proxy kinds, ProxyURL is empty, or ProxyPort is no port.");
  }
  next_ = std::move(first);
  return true;
}

bool WhoIsCall::AskOne(const WhoIsServer& server, const std::string& query, bool referred) {
  asked_.push_back(server);
  asked_.back().host = ToLower(server.host);
  if (asked_.back().host.ends_with('.')) asked_.back().host.pop_back();
  WhoIsAnswer& begun = owner_.answers_.emplace_back();
  begun.Server = server.Text();
  begun.Query = query;
  ConnectionPlan plan = plan_;
  plan.host = server.host;
  plan.port = server.port;
  const TimePoint start = Now();
  Outcome outcome = referred && !followPrivate_ && LooksUp(plan)
                        ? ExchangeReferred(std::move(plan), query)
                        : Exchange(plan, query);
  if (!call_->alive) return false;
  WhoIsAnswer& answer = owner_.answers_.back();
  answer.Seconds = std::chrono::duration<double>(Now() - start).count();
  answer.LastErr = outcome.error;
  if (outcome.error != 0) {
    answer.LastErrMsg =
        outcome.text.empty() ? SocketErrorText(outcome.error) : std::move(outcome.text);
  }
  owner_.lastErr_ = answer.LastErr;
  owner_.lastErrMsg_ = answer.LastErrMsg;
  if (outcome.error == 0 && follow_) DecideNext(answer);
  if (sink_) sink_(answer);
  return outcome.error == 0;
}

// A proxy that is given names knows by itself where they may lead.
bool WhoIsCall::LooksUp(const ConnectionPlan& plan) const {
  return plan.socks == SocksKind::None || !plan.remoteDNS || ParseAddress(plan.host).has_value();
}

WhoIsCall::Outcome WhoIsCall::Exchange(const ConnectionPlan& plan, const std::string& query) {
  WhoIsQuery exchange(owner_, call_, query, maxAnswer_, mark_);
  const std::int32_t error = exchange.Run(plan);
  const bool failed = error != 0 && !exchange.Connected();
  return {error, failed ? ConnectText(plan, error) : std::string(), exchange.Connected()};
}

// The name is looked up here, and only what has been looked at is connected to: a second lookup
// might give another address.
WhoIsCall::Outcome WhoIsCall::ExchangeReferred(ConnectionPlan plan, const std::string& query) {
  const TimePoint limit = std::min(MillisecondsFromNow(plan.wait), limit_);
  const LookupAnswer found = ResolveHost(plan.host, plan.lookup, mark_, limit);
  if (found.error != 0) {
    const std::int32_t error = ConnectError(found.error);
    return {error, ConnectText(plan, error)};
  }
  const auto refused = std::ranges::find_if_not(
      found.addresses, [](const IpAddress& each) { return IsPublic(each); });
  if (refused != found.addresses.end()) {
    return {kErrNotPublic, "The referral to " + plan.host + " leads to " + FormatAddress(*refused) +
                               ", which is no public address."};
  }
  Outcome outcome;
  for (const IpAddress& address : found.addresses) {
    if (!call_->alive) break;
    plan.host = FormatAddress(address);
    outcome = Exchange(plan, query);
    if (outcome.connected || outcome.error == kErrCancelled) break;
  }
  return outcome;
}

void WhoIsCall::DecideNext(WhoIsAnswer& answer) {
  WhoIsReferral referral = FindWhoIsReferral(answer.Text, asked_);
  answer.Notes = std::move(referral.notes);
  if (!referral.next) return;
  if (asked_.size() > kMostReferrals) {
    answer.Notes.push_back("not gone on to " + referral.next->Text() +
                           ": five referrals have been followed");
    return;
  }
  answer.RefersTo = referral.next->Text();
  next_ = std::move(referral.next);
}

}  // namespace netro
