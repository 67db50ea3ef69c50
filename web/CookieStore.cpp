#include "web/CookieStore.h"

#include <algorithm>
#include <optional>
#include <tuple>
#include <utility>

#include "support/Text.h"

namespace netro {
namespace {

using std::chrono::sys_seconds;

/// RFC 6265, section 5.1.3, without the equality of both.
bool IsBelow(std::string_view host, std::string_view domain) {
  return host.size() > domain.size() && host.ends_with(domain) &&
         host[host.size() - domain.size() - 1] == '.' && !IsAddressHost(host);
}

// RFC 6265, section 5.1.4.
bool PathMatches(std::string_view path, std::string_view cookiePath) {
  return path.starts_with(cookiePath) &&
         (path.size() == cookiePath.size() || cookiePath.ends_with('/') ||
          path[cookiePath.size()] == '/');
}

std::string PathOf(const Url& url) { return "/" + UrlEncode(url.path); }

// RFC 6265, section 5.1.4.
std::string DefaultPath(const Url& url) {
  const std::string path = PathOf(url);
  return path.substr(0, std::max<std::size_t>(path.rfind('/'), 1));
}

bool IsProtected(const Url& url) { return url.protocol == "https"; }

/// What a name's prefix promises (RFC 6265bis, section 4.1.3).
bool KeepsItsPrefix(const SetCookie& wanted) {
  if (StartsWithIgnoreCase(wanted.name, "__Secure-")) return wanted.secure;
  if (!StartsWithIgnoreCase(wanted.name, "__Host-")) return true;
  return wanted.secure && !wanted.domain && wanted.path == "/";
}

/// Section 5.3, steps 4 to 7: nothing when the host may not set a cookie for that domain.
std::optional<Cookie> Place(const SetCookie& wanted, const Url& url) {
  Cookie cookie;
  cookie.domain = CookieHost(url.host);
  if (cookie.domain.empty()) return std::nullopt;
  if (wanted.domain && *wanted.domain != cookie.domain) {
    // A name without a dot is a top-level domain, which everybody would share.
    if (wanted.domain->find('.') == std::string::npos) return std::nullopt;
    if (!IsBelow(cookie.domain, *wanted.domain)) return std::nullopt;
    cookie.domain = *wanted.domain;
  }
  cookie.hostOnly = !wanted.domain || cookie.domain.find('.') == std::string::npos ||
                    IsAddressHost(cookie.domain);
  cookie.path = wanted.path ? *wanted.path : DefaultPath(url);
  return cookie;
}

}  // namespace

bool IsAddressHost(std::string_view host) {
  const std::string_view last = host.substr(host.rfind('.') + 1);
  return host.find(':') != host.npos ||
         std::ranges::all_of(last, [](char c) { return c >= '0' && c <= '9'; });
}

bool CookieStore::Take(const SetCookie& wanted, const Url& url, sys_seconds now) {
  if (wanted.secure && !IsProtected(url)) return false;
  std::optional<Cookie> cookie = Place(wanted, url);
  if (!cookie || !KeepsItsPrefix(wanted)) return false;
  cookie->name = wanted.name;
  cookie->value = wanted.value;
  cookie->secure = wanted.secure;
  cookie->httpOnly = wanted.httpOnly;
  // The epoch itself stands for none.
  if (wanted.expires) {
    cookie->expires = *wanted.expires;
    if (cookie->IsSession()) cookie->expires -= std::chrono::seconds(1);
  }
  if (!IsProtected(url) && HidesSecureOne(*cookie)) return false;
  Put(std::move(*cookie), now);
  return true;
}

// RFC 6265bis, section 5.7: who can change answers in clear must not replace what was protected.
bool CookieStore::HidesSecureOne(const Cookie& cookie) const {
  for (const auto& [domain, cookies] : domains_) {
    const bool near =
        domain == cookie.domain || IsBelow(domain, cookie.domain) || IsBelow(cookie.domain, domain);
    if (near && std::ranges::any_of(cookies, [&](const Cookie& other) {
          return other.secure && other.name == cookie.name && PathMatches(cookie.path, other.path);
        })) {
      return true;
    }
  }
  return false;
}

void CookieStore::Add(Cookie cookie, sys_seconds now) { Put(std::move(cookie), now); }

// Section 5.3, steps 11 and 12. One that has expired only removes the one before it.
void CookieStore::Put(Cookie cookie, sys_seconds now) {
  cookie.created = cookie.used = ++clock_;
  if (const auto domain = domains_.find(cookie.domain); domain != domains_.end()) {
    Domain& cookies = domain->second;
    const auto old = std::ranges::find_if(cookies, [&](const Cookie& other) {
      return other.name == cookie.name && other.path == cookie.path;
    });
    if (old != cookies.end()) {
      cookie.created = old->created;
      cookies.erase(old);
      if (cookies.empty()) domains_.erase(domain);
    }
  }
  if (cookie.HasExpired(now)) return;
  const std::string name = cookie.domain;
  domains_[name].push_back(std::move(cookie));
  if (domains_[name].size() <= kMostPerDomain && Count() <= kMost) return;
  RemoveExpired(now);
  if (Domain& cookies = domains_[name]; cookies.size() > kMostPerDomain) RemoveOneOf({&cookies});
  if (Count() <= kMost) return;
  std::vector<Domain*> all;
  for (auto& [key, cookies] : domains_) all.push_back(&cookies);
  RemoveOneOf(all);
}

void CookieStore::RemoveExpired(sys_seconds now) {
  for (auto& [name, cookies] : domains_) {
    std::erase_if(cookies, [&](const Cookie& cookie) { return cookie.HasExpired(now); });
  }
  std::erase_if(domains_, [](const auto& entry) { return entry.second.empty(); });
}

void CookieStore::RemoveOneOf(const std::vector<Domain*>& domains) {
  Domain* owner = nullptr;
  Domain::iterator victim;
  for (Domain* const cookies : domains) {
    for (auto cookie = cookies->begin(); cookie != cookies->end(); ++cookie) {
      if (owner == nullptr ||
          std::tie(cookie->secure, cookie->used) < std::tie(victim->secure, victim->used)) {
        owner = cookies;
        victim = cookie;
      }
    }
  }
  if (owner != nullptr) owner->erase(victim);
}

std::size_t CookieStore::Count() const {
  std::size_t count = 0;
  for (const auto& [name, cookies] : domains_) count += cookies.size();
  return count;
}

// Section 5.4.
std::string CookieStore::HeaderFor(const Url& url, sys_seconds now) {
  const std::string host = CookieHost(url.host);
  const std::string path = PathOf(url);
  std::vector<Cookie*> found;
  // The host itself and every name above it.
  for (std::string_view name = host; !name.empty();) {
    if (const auto domain = domains_.find(name); domain != domains_.end()) {
      for (Cookie& cookie : domain->second) {
        const bool belongs = name == host || (!cookie.hostOnly && IsBelow(host, name));
        if (belongs && !cookie.HasExpired(now) && PathMatches(path, cookie.path) &&
            (!cookie.secure || IsProtected(url))) {
          found.push_back(&cookie);
        }
      }
    }
    const std::size_t dot = name.find('.');
    name = dot == name.npos ? std::string_view() : name.substr(dot + 1);
  }
  std::ranges::sort(found, [](const Cookie* a, const Cookie* b) {
    return a->path.size() != b->path.size() ? a->path.size() > b->path.size()
                                            : a->created < b->created;
  });
  std::string header;
  for (Cookie* const cookie : found) {
    cookie->used = ++clock_;
    header.append(header.empty() ? "" : "; ").append(cookie->name).append("=");
    header.append(cookie->value);
  }
  return header;
}

void CookieStore::ClearSession() {
  for (auto& [name, cookies] : domains_) {
    std::erase_if(cookies, [](const Cookie& cookie) { return cookie.IsSession(); });
  }
  std::erase_if(domains_, [](const auto& entry) { return entry.second.empty(); });
}

std::vector<const Cookie*> CookieStore::All(sys_seconds now) const {
  std::vector<const Cookie*> all;
  for (const auto& [name, cookies] : domains_) {
    for (const Cookie& cookie : cookies) {
      if (!cookie.HasExpired(now)) all.push_back(&cookie);
    }
  }
  std::ranges::sort(all, {}, &Cookie::created);
  return all;
}

}  // namespace netro
