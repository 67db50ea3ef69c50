// QueryDNSCLS: settings, results and the entries to a query; the work is DnsQuery's.
#include <netro/Localization.h>
#include <netro/QueryDNSCLS.h>

#include <new>

#include "dns/DnsQuery.h"
#include "platform/ErrorNumbers.h"
#include "platform/Sockets.h"
#include "socket/SocketErrors.h"
#include "support/Text.h"

namespace netro {

QueryDNSCLS::QueryDNSCLS()
    : module_(SocketModule::ForThread()), call_(std::make_shared<CallState>()) {}

QueryDNSCLS::~QueryDNSCLS() { call_->Die(); }

// Both queries: refused inside another one, and the result is left in LastErr.
template <class Call>
std::int16_t QueryDNSCLS::Run(Call call) {
  const BusyScope busy(call_);
  if (busy.Refused()) return static_cast<std::int16_t>(busy.Error());
  const auto state = call_;
  std::int32_t code = kErrNoBuffers;
  try {
    code = call(DnsQuery(*this));
    if (state->alive) TranslateDNSResult(code);
  } catch (const std::bad_alloc&) {
    code = kErrNoBuffers;
    if (state->alive) lastErr_ = code;
  }
  return static_cast<std::int16_t>(code);
}

std::int16_t QueryDNSCLS::QueryDNS(bool* IsAuthoritativeAnswer, bool* IsRecursionAvailable) {
  const auto state = call_;
  const std::int16_t code = Run([](DnsQuery query) { return query.Run(); });
  if (code == kErrInProgress || code == kErrOtherThread) return code;
  const bool alive = state->alive;
  if (IsAuthoritativeAnswer != nullptr) *IsAuthoritativeAnswer = alive && isAuthoritative_;
  if (IsRecursionAvailable != nullptr) *IsRecursionAvailable = alive && isRecursionAvailable_;
  return code;
}

std::int16_t QueryDNSCLS::QueryZone() {
  return Run([](DnsQuery query) { return query.RunOnce(); });
}

const DNSCLS* QueryDNSCLS::Entry(Section section, std::int32_t index) const {
  return index >= 1 && index <= Size(section)
             ? &records_[section][static_cast<std::size_t>(index) - 1]
             : nullptr;
}

const DNSCLS* QueryDNSCLS::Entry(Section section, const std::string& key) const {
  const std::string name = NormalName(key, areNamesEscaped_ ? NameForm::Escaped : NameForm::Plain);
  for (const DNSCLS& record : records_[section]) {
    if (EqualsIgnoreCase(record.Query(), name)) return &record;
  }
  return nullptr;
}

std::string QueryDNSCLS::TranslateDNSResult(std::int32_t res) {
  lastErr_ = res;
  lastErrMsg_ = res >= 9000 && res <= 9003
                    ? GetMessageText(res, {ProxyURL(), std::to_string(ProxyPort())})
                    : SocketErrorText(res);
  return lastErrMsg_;
}

bool QueryDNSCLS::IsIPNumber(const std::string& Address) const {
  return ParseDotted(Address).value_or(-1) != -1;
}

void QueryDNSCLS::StopWaiting() { call_->Stop(module_->MessageLoop()); }

void QueryDNSCLS::Kill() { StopWaiting(); }

}  // namespace netro
