// Fuzzes the URL splitter and encoder: whatever comes in, no part that goes into a request can end
// its line, and encoding twice equals encoding once.

#include "fuzz/Fuzz.h"
#include "support/Url.h"

namespace {

bool EndsLine(const std::string& text) {
  return text.find_first_of(std::string_view("\r\n\0", 3)) != std::string::npos;
}

// A name, or an IPv6 address with or without a zone.
void CheckHost(const std::string& host) {
  const bool v6 = host.find(':') != std::string::npos;
  const std::string address = v6 ? host.substr(0, host.find('%')) : std::string();
  const std::string rest = host.substr(address.size() + (address.size() < host.size() && v6));
  Require(address.find_first_not_of("0123456789abcdefABCDEF:.") == std::string::npos);
  Require(rest.find_first_of(" \t/?#@:[]%\\") == std::string::npos);
}

void CheckUrl(const netro::Url& url) {
  Require(!url.protocol.empty() && !url.host.empty());
  CheckHost(url.host);
  Require(url.port >= 1 && url.port <= 65535);
  Require(url.hasPort || url.port == 80);
  Require(url.hasUserInfo || (url.user.empty() && url.password.empty()));
  Require(url.path.find_first_of("?#") == std::string::npos);
  Require(url.query.find('#') == std::string::npos);
  for (const auto* part :
       {&url.protocol, &url.user, &url.password, &url.host, &url.path, &url.query}) {
    Require(!EndsLine(*part));
  }
}

void CheckEncoding(std::string_view text) {
  const std::string once = netro::UrlEncode(text);
  Require(netro::UrlEncode(once) == once);
  Require(std::ranges::all_of(once, [](char c) { return c > ' ' && c < 0x7F; }));
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string text(data, data + size);
  const netro::UrlResult result = netro::SplitUrl(text);
  if (result.error.empty()) {
    CheckUrl(result.url);
  } else {
    Require(!EndsLine(result.error));
  }
  CheckEncoding(text);
  return 0;
}
