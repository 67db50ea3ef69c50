// The names of the hops of "netro trace".

#include "trace/TraceNames.h"

#include <netro/ICMPCls.h>
#include <netro/MessageLoop.h>

#include <cstdint>
#include <stop_token>
#include <system_error>
#include <utility>

#include "terminal/Timer.h"

namespace netro::tool {
namespace {

// A trace is not held up by names: what takes longer counts as none.
constexpr std::int32_t kLimitMilliseconds = 1000;

std::string Lookup(const std::stop_token& stop, const std::string& address,
                   const std::string& dns) {
  ICMPCls icmp;
  icmp.DNSURL(dns);
  const std::stop_callback onStop(stop, [&icmp] { icmp.StopWaiting(); });
  const Timer limit(kLimitMilliseconds, [&icmp] { icmp.StopWaiting(); });
  return stop.stop_requested() ? std::string() : icmp.DNSLookup(address);
}

}  // namespace

TraceNames::~TraceNames() {
  for (std::jthread& lookup : lookups_) lookup.request_stop();
}

void TraceNames::Ask(const std::string& address) {
  if (!names_->try_emplace(address).second) return;
  MessageLoop& loop = MessageLoop::ForThisThread();
  // The answer may find nobody who still waits for it.
  const auto look = [address, dns = dns_, names = std::weak_ptr(names_),
                     &loop](const std::stop_token& stop) {
    loop.PostTask([address, names, name = Lookup(stop, address, dns)] {
      if (const auto known = names.lock()) (*known)[address] = name;
    });
  };
  try {
    lookups_.emplace_back(look);
  } catch (const std::system_error&) {  // no more threads
    (*names_)[address] = "";
  }
}

bool TraceNames::IsSettled(const std::string& address) const {
  const auto found = names_->find(address);
  return found == names_->end() || found->second.has_value();
}

std::string TraceNames::NameOf(const std::string& address) const {
  const auto found = names_->find(address);
  return found == names_->end() ? std::string() : found->second.value_or("");
}

}  // namespace netro::tool
