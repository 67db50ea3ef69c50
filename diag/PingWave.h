// The sound of a probe: a short fading tone as a wave file (8 kHz, mono, 8 bits), made by the
// compiler.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <string_view>

namespace netro {

constexpr std::size_t kPingWaveSamples = 2400;
constexpr std::size_t kWaveHeader = 44;

constexpr auto MakePingWave() {
  std::array<char, kWaveHeader + kPingWaveSamples> wave{};
  std::size_t at = 0;
  const auto text = [&](std::string_view bytes) {
    for (const char c : bytes) wave[at++] = c;
  };
  const auto number = [&](std::size_t value, int bytes) {
    for (; bytes > 0; --bytes, value >>= 8) wave[at++] = static_cast<char>(value & 0xFF);
  };
  text("RIFF"), number(wave.size() - 8, 4), text("WAVEfmt "), number(16, 4);
  number(1, 2), number(1, 2);        // PCM, one channel
  number(8000, 4), number(8000, 4);  // samples and bytes a second
  number(1, 2), number(8, 2);        // bytes a sample, bits
  text("data"), number(kPingWaveSamples, 4);
  // A damped oscillation is a recurrence of two terms: 2 r cos(w) and r^2, here for 1 kHz, where
  // the cosine is half the root of two.
  constexpr double kDamping = 0.9985;
  double before = 0, now = 60;
  for (std::size_t i = 0; i < kPingWaveSamples; ++i) {
    wave[at++] = static_cast<char>(static_cast<std::uint8_t>(128 + now));
    const double next = 1.41421356237 * kDamping * now - kDamping * kDamping * before;
    before = now;
    now = next;
  }
  return wave;
}

inline constexpr auto kPingWave = MakePingWave();

}  // namespace netro
