// The codings that this component was built with, as one table.

#include <netro/SystemCodings.h>

#include <algorithm>

#include "codings/Decoders.h"

namespace netro {
namespace {

struct Coding {
  std::string_view name;
  bool offered;  // x-gzip is an old name that is only understood (RFC 9110, section 8.4.1.3)
  std::unique_ptr<ContentDecoder> (*make)();
};

constexpr Coding kCodings[] = {
    {"gzip", true, MakeGzipDecoder},       {"x-gzip", false, MakeGzipDecoder},
    {"deflate", true, MakeDeflateDecoder},
#ifdef NETRO_HAS_BROTLI
    {"br", true, MakeBrotliDecoder},
#endif
#ifdef NETRO_HAS_ZSTD
    {"zstd", true, MakeZstdDecoder},
#endif
};

bool EqualsLower(std::string_view text, std::string_view lower) {
  return std::ranges::equal(text, lower, [](char a, char b) {
    return (a >= 'A' && a <= 'Z' ? static_cast<char>(a - 'A' + 'a') : a) == b;
  });
}

class SystemProvider final : public CodingProvider {
 public:
  std::string Codings() const override {
    std::string names;
    for (const Coding& coding : kCodings) {
      if (coding.offered) names.append(names.empty() ? "" : ", ").append(coding.name);
    }
    return names;
  }

  std::unique_ptr<ContentDecoder> MakeDecoder(std::string_view name) const override {
    for (const Coding& coding : kCodings) {
      if (EqualsLower(name, coding.name)) return coding.make();
    }
    return nullptr;
  }
};

}  // namespace

std::shared_ptr<CodingProvider> SystemCodings() { return std::make_shared<SystemProvider>(); }

}  // namespace netro
