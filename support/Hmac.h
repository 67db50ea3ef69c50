// Keyed digests: HMAC (RFC 2104) and PBKDF2 with it (RFC 8018, section 5.2), over Md5 and Sha256.
// Thread: any.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace netro {

template <class Digest>
std::string_view TextOfDigest(const Digest& digest) {
  return {reinterpret_cast<const char*>(digest.data()), digest.size()};
}

/// Digests texts under one key, which is taken in once.
template <class Hash>
class Hmac {
 public:
  using Digest = typename Hash::Digest;

  explicit Hmac(std::string_view key) {
    constexpr std::size_t kBlock = 64;  // of MD5 and SHA-256
    std::string padded(key);
    if (key.size() > kBlock) {
      Hash hash;
      hash.Update(key);
      padded = TextOfDigest(hash.Finish());
    }
    padded.resize(kBlock, '\0');
    for (char& c : padded) c = static_cast<char>(c ^ 0x36);
    inner_.Update(padded);
    for (char& c : padded) c = static_cast<char>(c ^ 0x36 ^ 0x5c);
    outer_.Update(padded);
  }

  Digest operator()(std::string_view text) const {
    Hash inner = inner_;
    inner.Update(text);
    Hash outer = outer_;
    outer.Update(TextOfDigest(inner.Finish()));
    return outer.Finish();
  }

 private:
  Hash inner_;
  Hash outer_;
};

/// The first block of PBKDF2, as long as a digest; `iterations` is at least 1.
template <class Hash>
typename Hash::Digest Pbkdf2(std::string_view password, std::string_view salt,
                             std::uint32_t iterations) {
  using namespace std::string_view_literals;
  const Hmac<Hash> hmac(password);
  auto round = hmac(std::string(salt).append("\0\0\0\1"sv));
  auto sum = round;
  for (std::uint32_t i = 1; i < iterations; ++i) {
    round = hmac(TextOfDigest(round));
    for (std::size_t at = 0; at < sum.size(); ++at) {
      sum[at] = static_cast<std::uint8_t>(sum[at] ^ round[at]);
    }
  }
  return sum;
}

}  // namespace netro
