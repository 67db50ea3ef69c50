// The names of a thread: the cache first, then the hosts file, then the DNS servers that the caller
// has named, or else those of the system, or its resolver.
#include "socket/HostLookup.h"

#include <algorithm>
#include <atomic>
#include <memory>
#include <new>
#include <utility>

#include "dns/AddressOrder.h"
#include "dns/LookupCache.h"
#include "dns/ServerDiscovery.h"
#include "dns/ServerLookup.h"
#include "dns/SystemLookup.h"
#include "platform/ErrorNumbers.h"
#include "platform/HostsFile.h"
#include "platform/PerThread.h"
#include "platform/ResolverConfig.h"
#include "support/Text.h"

namespace netro {
namespace {

using Families = std::vector<AddressFamily>;
using Answers = std::vector<LookupAnswer>;

struct Request {
  const std::string& name;
  const LookupSettings& settings;
  const CancelMark& mark;
  TimePoint deadline;
};

LookupAnswer Failed(std::int32_t error) { return {{}, error, {}}; }

std::vector<IpAddress> OfFamily(const std::vector<IpAddress>& all, AddressFamily family) {
  std::vector<IpAddress> some;
  std::ranges::copy_if(all, std::back_inserter(some),
                       [&](const IpAddress& one) { return one.Family() == family; });
  return some;
}

Families FamiliesOf(AddressPreferenceEnum preference) {
  switch (preference) {
    case onlyIPv4:
      return {AddressFamily::IPv4};
    case onlyIPv6:
      return {AddressFamily::IPv6};
    case preferIPv6:
      return {AddressFamily::IPv6, AddressFamily::IPv4};
    case preferIPv4:
      break;
  }
  return {AddressFamily::IPv4, AddressFamily::IPv6};
}

std::vector<std::int32_t> TypesOf(const Families& families) {
  std::vector<std::int32_t> types;
  for (const AddressFamily family : families) {
    types.push_back(family == AddressFamily::IPv6 ? TYPE_AAAA : TYPE_A);
  }
  return types;
}

// What the system's resolver would ask for, in this order (resolv.conf(5)).
std::vector<std::string> Candidates(const std::string& name, const ResolverConfig& config) {
  std::vector<std::string> names{name};
  if (name.ends_with('.') || config.search.empty()) return names;
  for (const std::string& domain : config.search) names.push_back(name + '.' + domain);
  const auto dots = std::ranges::count(name, '.');
  if (dots < config.ndots) std::rotate(names.begin(), names.begin() + 1, names.end());
  return names;
}

// Which of several failures to tell: what the servers know outweighs what they do not.
std::int32_t Worse(std::int32_t a, std::int32_t b) {
  const auto weight = [](std::int32_t error) {
    return error == kErrNoData ? 3 : error == kErrTryAgain ? 2 : error == kErrNoDnsEntries ? 1 : 4;
  };
  return weight(b) > weight(a) ? b : a;
}

bool HasAny(const Answers& answers) {
  return std::ranges::any_of(answers, [](const LookupAnswer& one) { return one.error == 0; });
}

// Those that an entry of the cache holds, separated by commas.
std::vector<IpAddress> AddressesIn(const std::string& text, AddressFamily family) {
  std::vector<IpAddress> found;
  const auto add = [&](const std::string& one) {
    const auto address = ParseAddress(one);
    if (address && address->Family() == family) found.push_back(*address);
  };
  if (text.find(',') == std::string::npos) {
    add(text);
  } else {
    std::ranges::for_each(Split(text, ','), add);
  }
  return found;
}

class Names final : public HostLookup {
 public:
  LookupAnswer Lookup(std::string address, const LookupSettings& settings, const CancelMark& mark,
                      TimePoint deadline) override try {
    if (address.empty() || address.find('\0') != std::string::npos) return Failed(kErrNoDnsEntries);
    const Request request{address, settings, mark, deadline};
    wasStale_ = false;
    LookupAnswer answer = ParseAddress(address) ? LookUpAddress(request) : LookUpName(request);
    if (serveStale_) ForgetDenied(request, answer.error);
    if (serveStale_ && answer.error == kErrTryAgain) TakeExpired(request, answer);
    return answer;
  } catch (const std::bad_alloc&) {
    return Failed(kErrNoBuffers);
  }

  std::shared_ptr<LookupTask> Begin(std::string name, AddressPreferenceEnum preference) override {
    auto known = Cached(name, preference);
    const bool isCached = known.has_value();
    if (!isCached) known = FromHostsFile(name, preference);
    if (!known) {
      return BeginSystemLookup(name, preference, *Loop::ForThread(), std::make_shared<CallState>());
    }
    auto task = std::make_shared<LookupTask>();
    task->isCached = isCached;
    task->address = std::move(name);
    task->answer = std::move(*known);
    task->done = true;
    return task;
  }

  LookupAnswer Finish(const LookupTask& task) override {
    if (task.answer.error == 0 && !task.isCached) Remember(task.address, task.answer);
    return task.answer;
  }

  const std::string& DefaultServers(const CancelMark& mark) override {
    const std::uint64_t stamp = ResolverConfigStamp();
    if (discovered_ && stamp == stamp_) return defaultServers_;
    bool complete = false;
    std::string servers = SharedServerList(mark, stamp, complete);
    if (!discovered_ || stamp != stamp_) {  // else by a call inside the wait
      defaultServers_ = std::move(servers);
      config_ = ReadResolverConfig();
      discovered_ = complete;
      stamp_ = stamp;
    }
    return defaultServers_;
  }

  void Clear() override {
    cache_.Clear();
    ipv6_.Clear();
  }
  std::int32_t Count() const override { return cache_.Count() + ipv6_.Count(); }
  std::int32_t Save(const std::string& fileName) override { return cache_.Save(fileName, &ipv6_); }
  std::int32_t Restore(const std::string& fileName) override { return cache_.Restore(fileName); }

  bool ServeStale() const override { return serveStale_; }
  void ServeStale(bool value) override {
    serveStale_ = value;
    cache_.KeepExpired(value);
    ipv6_.KeepExpired(value);
  }
  bool WasStale() const override { return wasStale_; }

  void ThreadEnds() {}

 private:
  void TakeExpired(const Request& request, LookupAnswer& answer) {
    const bool isAddress = ParseAddress(request.name).has_value();
    for (const AddressFamily family : FamiliesOf(request.settings.preference)) {
      for (LookupCache* cache : {&CacheOf(family), &cache_}) {
        const auto text = cache->FindExpired(request.name);
        if (!text) continue;
        std::vector<IpAddress> found = AddressesIn(*text, family);
        if (found.empty() && !isAddress) continue;
        answer = isAddress ? LookupAnswer{*text, 0, {}} : LookupAnswer::Of(std::move(found));
        wasStale_ = true;
        return;
      }
    }
  }

  // What a server denies is not served again.
  void ForgetDenied(const Request& request, std::int32_t error) {
    if (error != kErrNoDnsEntries && error != kErrNoData) return;
    cache_.Forget(request.name);
    if (error == kErrNoDnsEntries) ipv6_.Forget(request.name);
  }

  LookupCache& CacheOf(AddressFamily family) {
    return family == AddressFamily::IPv6 ? ipv6_ : cache_;
  }

  // What is restored from a file may be of either family.
  static std::optional<LookupAnswer> CachedIn(LookupCache& cache, const std::string& name,
                                              AddressFamily family) {
    auto text = cache.Find(name);
    if (!text) return std::nullopt;
    std::vector<IpAddress> found = AddressesIn(*text, family);
    if (found.empty()) return std::nullopt;
    if (found.size() > 1) return LookupAnswer::Of(std::move(found));
    return LookupAnswer{std::move(*text), 0, std::move(found)};
  }

  std::optional<LookupAnswer> Cached(const std::string& name, AddressFamily family) {
    auto known = CachedIn(CacheOf(family), name, family);
    return known || family == AddressFamily::IPv4 ? known : CachedIn(cache_, name, family);
  }

  std::optional<LookupAnswer> Cached(const std::string& name, AddressPreferenceEnum preference) {
    for (const AddressFamily family : FamiliesOf(preference)) {
      if (auto known = Cached(name, family)) return known;
    }
    return std::nullopt;
  }

  static std::optional<LookupAnswer> FromHostsFile(const std::string& name,
                                                   AddressPreferenceEnum preference) {
    const std::vector<IpAddress> all = HostsFileAddresses(name);
    for (const AddressFamily family : FamiliesOf(preference)) {
      auto some = OfFamily(all, family);
      if (!some.empty()) return LookupAnswer::Of(std::move(some));
    }
    return std::nullopt;
  }

  void Remember(const std::string& key, const LookupAnswer& answer) {
    std::string text = answer.text;
    for (std::size_t i = 1; i < answer.addresses.size(); ++i) {
      text += ',' + FormatAddress(answer.addresses[i]);
    }
    CacheOf(answer.First().Family()).Insert(key, text);
  }

  LookupAnswer LookUpAddress(const Request& request) {
    if (auto known = cache_.Find(request.name)) return {std::move(*known), 0, {}};
    bool isShort = false;
    LookupAnswer answer{HostsFileName(*ParseAddress(request.name), &isShort), 0, {}};
    if (answer.text.empty() && isShort) return Failed(kErrNoBuffers);
    if (answer.text.empty()) answer = Ask(request, {AddressFamily::None}).front();
    if (answer.error == 0) Remember(request.name, answer);
    return answer;
  }

  LookupAnswer LookUpName(const Request& request) {
    const AddressPreferenceEnum preference = request.settings.preference;
    if (preference == preferIPv6) return LookUpBoth(request);
    const auto family = preference == onlyIPv6 ? AddressFamily::IPv6 : AddressFamily::IPv4;
    auto known = Cached(request.name, family);
    LookupAnswer answer = known ? std::move(*known) : Find(request, {family}).front();
    if (preference != preferIPv4) return answer;
    answer.mayHaveIPv6 = answer.error == 0;
    if (answer.error == kErrTryAgain) {
      if (auto other = Cached(request.name, AddressFamily::IPv6)) return *std::move(other);
    }
    if (answer.error != kErrNoData) return answer;
    LookupAnswer other = Find(request, {AddressFamily::IPv6}).front();
    return other.error == kErrNoDnsEntries ? answer : other;
  }

  LookupAnswer LookUpBoth(const Request& request) {
    Answers answers = Find(request, FamiliesOf(preferIPv6));
    if (!HasAny(answers)) return Failed(Worse(answers[0].error, answers[1].error));
    std::vector<IpAddress> all = std::move(answers[0].addresses);
    all.insert(all.end(), answers[1].addresses.begin(), answers[1].addresses.end());
    return LookupAnswer::Of(OrderAddresses(std::move(all)));
  }

  // The addresses of a name, an answer for each family.
  Answers Find(const Request& request, const Families& families) {
    Answers answers(families.size());
    Families missing;
    for (std::size_t i = 0; i < families.size(); ++i) {
      auto known = Cached(request.name, families[i]);
      known ? void(answers[i] = std::move(*known)) : missing.push_back(families[i]);
    }
    if (missing.empty()) return answers;
    Answers found = FindAnew(request, missing);
    for (std::size_t i = 0, next = 0; i < families.size(); ++i) {
      if (next == missing.size() || families[i] != missing[next]) continue;
      answers[i] = std::move(found[next++]);
      if (answers[i].error == 0) Remember(request.name, answers[i]);
    }
    return answers;
  }

  Answers FindAnew(const Request& request, const Families& families) {
    bool isShort = false;
    const std::vector<IpAddress> all = HostsFileAddresses(request.name, &isShort);
    if (all.empty() && isShort) return Answers(families.size(), Failed(kErrNoBuffers));
    if (all.empty()) return Ask(request, families);
    Answers answers;
    for (const AddressFamily family : families) {
      auto some = OfFamily(all, family);
      answers.push_back(some.empty() ? Failed(kErrNoData) : LookupAnswer::Of(std::move(some)));
    }
    return answers;
  }

  Answers Ask(const Request& request, const Families& families) {
    const auto& list = request.settings.servers;
    const auto servers = ParseServerList(list ? *list : DefaultServers(request.mark));
    if (!servers) return Answers(families.size(), Failed(kErrInvalidArgument));
    if (request.mark.Cancelled()) return Answers(families.size(), Failed(kErrCancelled));
    if (servers->empty()) return AskTheSystem(request, families);
    if (!list) return AskDefault(*servers, request, families);
    return AskServers(*servers, request.name, QuestionTypes(families), {}, request.mark,
                      request.deadline);
  }

  static std::vector<std::int32_t> QuestionTypes(const Families& families) {
    if (families.front() == AddressFamily::None) return {TYPE_PTR};
    return TypesOf(families);
  }

  static Answers AskTheSystem(const Request& request, const Families& families) {
    Answers answers;
    for (const AddressFamily family : families) {
      const auto only = family == AddressFamily::IPv6 ? onlyIPv6 : onlyIPv4;
      answers.push_back(AskSystem(request.name, only, request.mark, request.deadline));
    }
    return answers;
  }

  // By the system's rules; its own resolver is asked where its servers tell nothing.
  Answers AskDefault(std::vector<DnsServer> servers, const Request& request,
                     const Families& families) {
    static std::atomic<std::size_t> turn{0};
    const ResolverConfig config = config_;
    LookupRules rules;
    if (config.timeout > 0) rules.wait = std::chrono::seconds(config.timeout);
    if (config.attempts > 0) rules.rounds = config.attempts;
    if (config.rotate) {
      const auto first = servers.begin() + static_cast<long>(turn++ % servers.size());
      std::rotate(servers.begin(), first, servers.end());
    }
    const bool isAddress = families.front() == AddressFamily::None;
    std::int32_t error = kErrNoDnsEntries;
    for (const std::string& name :
         isAddress ? std::vector{request.name} : Candidates(request.name, config)) {
      Answers answers =
          AskServers(servers, name, QuestionTypes(families), rules, request.mark, request.deadline);
      if (HasAny(answers)) return answers;
      for (const LookupAnswer& answer : answers) error = Worse(error, answer.error);
      if (error == kErrCancelled || error == kErrTimedOut) break;
    }
    if (error == kErrTryAgain) return AskTheSystem(request, families);
    return Answers(families.size(), Failed(error));
  }

  LookupCache cache_;  // IPv4 addresses, and names
  LookupCache ipv6_;
  std::string defaultServers_;
  ResolverConfig config_;  // that these are from
  std::uint64_t stamp_ = 0;
  bool discovered_ = false;
  bool serveStale_ = false;
  bool wasStale_ = false;
};

}  // namespace

HostLookup& DefaultHostLookup() {
  return *PerThread<Names>([] { return std::make_shared<Names>(); });
}

}  // namespace netro
