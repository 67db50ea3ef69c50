#include <netro/CookieJar.h>

#include <chrono>
#include <utility>

#include "platform/Clock.h"
#include "platform/ErrorNumbers.h"
#include "platform/WholeFile.h"
#include "support/Url.h"
#include "web/CookieStore.h"
#include "web/CookieText.h"

namespace netro {
namespace {

// Far more than a full jar has.
constexpr std::size_t kLargestFile = std::size_t{32} << 20;

std::chrono::sys_seconds Present() {
  return std::chrono::floor<std::chrono::seconds>(SystemTime());
}

}  // namespace

CookieJar::CookieJar() : store_(std::make_unique<CookieStore>()) {}

CookieJar::~CookieJar() = default;

std::string CookieJar::CookieHeader(const std::string& URL) {
  const UrlResult split = SplitUrl(URL);
  return split.error.empty() ? store_->HeaderFor(split.url, Present()) : std::string();
}

bool CookieJar::Take(const std::string& SetCookie, const std::string& URL) {
  const UrlResult split = SplitUrl(URL);
  const std::chrono::sys_seconds now = Present();
  const auto wanted = ReadSetCookie(SetCookie, now);
  return split.error.empty() && wanted && store_->Take(*wanted, split.url, now);
}

std::size_t CookieJar::Count() const { return store_->All(Present()).size(); }

void CookieJar::Clear() { store_->Clear(); }

void CookieJar::ClearSession() { store_->ClearSession(); }

std::int32_t CookieJar::Save(const std::string& Path) {
  errorText_.clear();
  const std::int32_t error = ReplaceFile(Path, WriteCookies(store_->All(Present())));
  if (error != 0) errorText_ = "The cookies could not be written.";
  return error;
}

std::int32_t CookieJar::Load(const std::string& Path) {
  errorText_.clear();
  std::string text;
  if (const std::int32_t error = ReadWholeFile(Path, text, kLargestFile)) {
    errorText_ = "The file of cookies could not be read.";
    return error;
  }
  CookiesResult result = ReadCookies(text);
  errorText_ = std::move(result.error);
  if (!errorText_.empty()) return kErrInvalidArgument;
  const std::chrono::sys_seconds now = Present();
  for (Cookie& cookie : result.cookies) store_->Add(std::move(cookie), now);
  return 0;
}

}  // namespace netro
