#include "diag/WatchProbe.h"

#include <netro/QueryDNSCLS.h>
#include <netro/QueryTimeCLS.h>
#include <netro/SMTPCls.h>
#include <netro/SocketCls.h>
#include <netro/Task.h>

#include <algorithm>
#include <limits>

#include "diag/IcmpTexts.h"
#include "diag/WatchWeb.h"
#include "platform/ErrorNumbers.h"
#include "socket/SocketErrors.h"
#include "socket/StreamExchange.h"
#include "support/Url.h"

namespace netro {
namespace {

using std::chrono::milliseconds;

constexpr std::chrono::seconds kLookupTime(10);
constexpr std::size_t kMostBanner = 4096;

constexpr char kNameUnknown[] = "DNS Error. Can not resolve Host Name";
constexpr char kNoEcho[] = "ICMPCreateFile Error";

bool IsWeb(const WatchTarget& target) {
  return target.kind == WatchKind::Http || target.kind == WatchKind::Https;
}

std::string HostOf(const WatchTarget& target) {
  return IsWeb(target) ? SplitUrl(target.host).url.host : target.host;
}

// The cache has it from then on, for the class that needs it.
std::int32_t LookUp(const std::string& name, IpAddress& ip) {
  SocketCls socket;
  Task::Current().Deadline(kLookupTime);
  ip = ParseAddress(socket.DNSLookup(name)).value_or(IpAddress());
  return socket.DNSLastErr();
}

ProbeResult AskEcho(const IpAddress& ip, const WatchProbeTools& tools) {
  const std::int32_t error = tools.echoes->Open(ip);
  if (IsOwnLack(error)) return LackOf(error);
  if (error != 0) return {ProbeResult::Forbidden, -1, kNoEcho};
  EchoOutcome outcome;
  const std::int32_t asked = tools.echoes->Ask(ip, tools.packetSize, tools.echoTimeout, outcome);
  if (asked != 0 || outcome.status == kIpNoResources) return LackOf(kErrNoBuffers);
  if (outcome.status != kIpSuccess) return FailureOf(IcmpErrorText(outcome.status));
  return SuccessAfter(outcome.roundTrip);
}

// A connection, and what the server says by itself if a text is wanted.
class TcpProbe final : public StreamExchange {
 public:
  TcpProbe(const CancelMark& mark, std::string text)
      : StreamExchange(mark), text_(std::move(text)) {}

  std::string FailureText(std::int32_t error) const {
    if (Connected() && !seen_.empty()) return "No '" + text_ + "' in: " + HarmlessText(seen_);
    return SocketErrorText(error);
  }

 private:
  std::string Request() override {
    if (text_.empty()) End(0);
    return {};
  }
  void Arrived(std::span<const std::uint8_t> bytes) override {
    seen_.append(bytes.begin(), bytes.end());
    if (seen_.find(text_) != std::string::npos) return End(0);
    if (seen_.size() >= kMostBanner) End(kErrMessageTooLong);
  }
  std::int32_t PeerClosed(std::int32_t error) override {
    return error != 0 ? error : kErrConnectionReset;
  }

  const std::string text_;
  std::string seen_;
};

ProbeResult Connect(const WatchTarget& target, const WatchProbeTools& tools) {
  const CancelMark mark(SocketModule::ForThread(), std::make_shared<CallState>());
  ConnectionPlan plan;
  plan.host = target.host;
  plan.port = target.port;
  plan.wait = tools.timeout;
  TcpProbe probe(mark, target.text);
  const TimePoint begun = Now();
  const std::int32_t error = probe.Run(plan);
  if (IsOwnLack(error)) return LackOf(error);
  return error == 0 ? SuccessAfter(Now() - begun) : FailureOf(probe.FailureText(error));
}

// The greeting, and the answer to a HELO.
ProbeResult Greet(const WatchTarget& target) {
  constexpr char kNobody[] = "postmaster@localhost";
  SMTPCls smtp;
  smtp.ReceiverHostName(target.host);
  smtp.Port(target.port);
  smtp.LastStep(SMTP_STEP_HELO);
  const TimePoint begun = Now();
  if (smtp.SMTP(kNobody, kNobody, {})) return SuccessAfter(Now() - begun);
  if (IsOwnLack(smtp.Result())) return LackOf(smtp.Result());
  return FailureOf("SMTP: " + HarmlessText(smtp.ResultMessage()));
}

bool HasAddress(const QueryDNSCLS& dns) {
  for (std::int32_t i = 1; i <= dns.CountAN(); ++i) {
    if (dns.EntryAN(i)->DataType() == dns.QueryType()) return true;
  }
  return false;
}

ProbeResult AskName(const WatchTarget& target) {
  QueryDNSCLS dns;
  dns.DNSServer(target.host);
  dns.DNSPort(target.port);
  dns.Domain(target.question);
  dns.QueryID(-1);
  const TimePoint begun = Now();
  std::int32_t error = dns.QueryDNS();
  if ((error == 0 && !HasAddress(dns)) || (error == kErrNoDnsEntries && dns.ReplyCode() == 0)) {
    dns.QueryType(TYPE_AAAA);
    error = dns.QueryDNS();
  }
  if (IsOwnLack(error)) return LackOf(error);
  if (error == 0 && HasAddress(dns)) return SuccessAfter(Now() - begun);
  if (error == 0) return FailureOf("DNS: an alias without an address.");
  return FailureOf("DNS: " + HarmlessText(dns.LastErrMsg()));
}

ProbeResult AskTime(const WatchTarget& target, const WatchProbeTools& tools) {
  QueryTimeCLS time;
  time.Server(target.host);
  time.SNTPVersion(4);  // which looks no name of the server's reference up
  constexpr std::int64_t kMost = std::numeric_limits<std::int16_t>::max();
  time.Timeout(static_cast<std::int16_t>(std::min<std::int64_t>(tools.timeout.count(), kMost)));
  const TimePoint begun = Now();
  if (!time.QueryTime()) {
    if (IsOwnLack(time.LastErr())) return LackOf(time.LastErr());
    return FailureOf("NTP: " + HarmlessText(time.LastErrMsg()));
  }
  const SNTPStratumEnum stratum = time.SNTPStratum();
  const bool isSet = time.SNTPLeapIndicator() != SNTPLeapIndicatorEnum::Alarm &&
                     (stratum == SNTPStratumEnum::PrimaryReference ||
                      stratum == SNTPStratumEnum::SecondaryReference);
  return isSet ? SuccessAfter(Now() - begun) : FailureOf("NTP: the server's clock is not set.");
}

}  // namespace

std::string NameToLookUp(const WatchTarget& target) {
  std::string host = HostOf(target);
  return ParseAddress(host) ? std::string() : host;
}

bool IsOwnLack(std::int32_t error) {
  constexpr std::int32_t kAgain = 11, kNoMemory = 12, kFileTable = 23, kFiles = 24;  // errno
  switch (error - kSystemErrorBase) {
    case kAgain:
    case kNoMemory:
    case kFileTable:
    case kFiles:
      return true;
    default:
      return error == kErrTooManyFiles || error == kErrNoBuffers;
  }
}

ProbeResult LackOf(std::int32_t error) {
  return {ProbeResult::Lacking, -1, SocketErrorText(error)};
}

ProbeResult FailureOf(std::string text) { return {ProbeResult::Failed, -1, std::move(text)}; }

ProbeResult SuccessAfter(std::chrono::nanoseconds time) {
  const auto count = static_cast<std::int32_t>(time / milliseconds(1));
  return {ProbeResult::Succeeded, count, "Success: " + std::to_string(count) + " ms"};
}

std::string HarmlessText(std::string text) {
  constexpr std::size_t kMostKept = 200;
  text.resize(std::min(text.size(), kMostKept));
  while (text.ends_with('\n') || text.ends_with('\r')) text.pop_back();
  const auto isStrange = [](unsigned char c) { return c < 0x20 || c > 0x7E; };
  std::replace_if(text.begin(), text.end(), isStrange, '?');
  return text;
}

ProbeResult ProbeHost(const WatchTarget& target, const WatchProbeTools& tools) {
  if (IsWeb(target)) {
    const std::string problem = WhyNoUrl(target);
    if (!problem.empty()) return FailureOf(problem);
  }
  const std::string name = NameToLookUp(target);
  IpAddress ip = ParseAddress(HostOf(target)).value_or(IpAddress());
  const std::int32_t error = name.empty() ? 0 : LookUp(name, ip);
  tools.lookedUp();
  if (IsOwnLack(error)) return LackOf(error);
  if (error != 0) return FailureOf(kNameUnknown);
  const bool isEcho = target.kind == WatchKind::Ping;  // which has its own deadline
  Task::Current().Deadline(isEcho ? tools.echoTimeout + kLookupTime : tools.timeout);
  switch (target.kind) {
    case WatchKind::Ping:
      return AskEcho(ip, tools);
    case WatchKind::Tcp:
      return Connect(target, tools);
    case WatchKind::Smtp:
      return Greet(target);
    case WatchKind::Dns:
      return AskName(target);
    case WatchKind::Ntp:
      return AskTime(target, tools);
    case WatchKind::Http:
    case WatchKind::Https:
      break;
  }
  return FetchPage(target, tools);
}

}  // namespace netro
