// Feeds what the first byte chooses: lines, a URL and what it sets, one after the other; or a file
// of cookies. The jar must keep within its bounds, headers must be one line, and what was written
// must come back.
#include <chrono>

#include "fuzz/Fuzz.h"
#include "support/HttpDate.h"
#include "support/Text.h"
#include "support/Url.h"
#include "web/CookieStore.h"
#include "web/CookieText.h"
#include "web/SetCookie.h"

namespace {

constexpr std::chrono::sys_seconds kNow{std::chrono::seconds(1'800'000'000)};

void CheckStore(netro::CookieStore& store) {
  const auto all = store.All(kNow);
  Require(all.size() <= netro::CookieStore::kMost);
  for (const netro::Cookie* const cookie : all) {
    Require(!cookie->name.empty() && cookie->path.starts_with('/') && !cookie->domain.empty());
    Require(cookie->name.size() + cookie->value.size() <= netro::kLongestCookie);
  }
  const netro::CookiesResult again = netro::ReadCookies(netro::WriteCookies(all));
  Require(again.error.empty() && again.cookies.size() == all.size());
  for (std::size_t i = 0; i < all.size(); ++i) {
    const netro::Cookie& read = again.cookies[i];
    Require(read.name == all[i]->name && read.value == all[i]->value);
    Require(read.domain == all[i]->domain && read.path == all[i]->path);
    Require(read.expires == all[i]->expires && read.hostOnly == all[i]->hostOnly);
    Require(read.secure == all[i]->secure && read.httpOnly == all[i]->httpOnly);
  }
}

void CheckLines(const std::string& text) {
  netro::CookieStore store;
  netro::Url url;
  url.host = "www.example.org";
  for (const std::string& line : netro::Split(text, '\n')) {
    const netro::UrlResult split = netro::SplitUrl(line);
    if (split.error.empty() && line.find("://") != line.npos) url = split.url;
    if (const auto wanted = netro::ReadSetCookie(line, kNow)) {
      const bool taken = store.Take(*wanted, url, kNow);
      Require(!taken || !wanted->secure || url.protocol == "https");
    }
    Require(!netro::HasControlCharacter(store.HeaderFor(url, kNow)));
    netro::ReadHttpDate(line);
  }
  CheckStore(store);
}

void CheckFile(const std::string& text) {
  netro::CookiesResult file = netro::ReadCookies(text);
  Require(file.error.empty() || file.cookies.empty());
  netro::CookieStore loaded;
  for (netro::Cookie& cookie : file.cookies) loaded.Add(std::move(cookie), kNow);
  CheckStore(loaded);
  netro::Url url;
  url.host = "www.example.org";
  Require(!netro::HasControlCharacter(loaded.HeaderFor(url, kNow)));
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  FuzzBytes bytes(data, size);
  const bool isFile = TakeByte(bytes) % 2 == 1;
  const std::string text(TextOf(bytes));
  if (isFile) {
    CheckFile(text);
  } else {
    CheckLines(text);
  }
  return 0;
}
