// The cookies of a jar and their rules (RFC 6265, sections 5.3 and 5.4). Pure: the time is given.
// Owned by CookieJar; thread: one at a time.
#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <map>
#include <string>
#include <string_view>
#include <vector>

#include "support/Url.h"
#include "web/SetCookie.h"

namespace netro {

struct Cookie {
  std::string domain;  // as CookieHost has it
  std::string path;
  std::string name;
  std::string value;
  std::chrono::sys_seconds expires{};  // the epoch: until the session ends
  bool hostOnly = true;                // not for the hosts below `domain`
  bool secure = false;
  bool httpOnly = false;
  std::uint64_t created = 0;  // as numbers in the order of the store
  std::uint64_t used = 0;

  bool IsSession() const { return expires == std::chrono::sys_seconds(); }
  bool HasExpired(std::chrono::sys_seconds now) const { return !IsSession() && expires <= now; }
};

class CookieStore {
 public:
  static constexpr std::size_t kMostPerDomain = 50;
  static constexpr std::size_t kMost = 3000;

  bool Take(const SetCookie& wanted, const Url& url, std::chrono::sys_seconds now);
  /// The value of the Cookie field.
  std::string HeaderFor(const Url& url, std::chrono::sys_seconds now);
  /// Adds a cookie that was stored before, without asking who set it.
  void Add(Cookie cookie, std::chrono::sys_seconds now);

  void Clear() { domains_.clear(); }
  void ClearSession();
  /// Those that have not expired, in the order in which they were set.
  std::vector<const Cookie*> All(std::chrono::sys_seconds now) const;

 private:
  using Domain = std::vector<Cookie>;

  bool HidesSecureOne(const Cookie& cookie) const;
  void Put(Cookie cookie, std::chrono::sys_seconds now);
  void RemoveExpired(std::chrono::sys_seconds now);
  void RemoveOneOf(const std::vector<Domain*>& domains);
  std::size_t Count() const;

  std::map<std::string, Domain, std::less<>> domains_;
  std::uint64_t clock_ = 0;
};

/// True for addresses, which have no domains above them.
bool IsAddressHost(std::string_view host);

}  // namespace netro
