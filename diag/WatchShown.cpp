#include "diag/WatchShown.h"

#include <netro/ShownText.h>

#include <cstddef>

namespace netro {
std::string WithoutUserInfo(const std::string& url) { return ShownUrl(url, "***@"); }

std::string Sentence(std::string text) {
  if (!text.ends_with('.')) text += '.';
  return text;
}

std::string OriginOf(const std::string& url) {
  const std::string shown = WithoutUserInfo(url);
  const std::size_t scheme = shown.find("://");
  return shown.substr(0, shown.find_first_of("/?#", scheme == shown.npos ? 0 : scheme + 3));
}

}  // namespace netro
