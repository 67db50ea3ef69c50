// Sound through what the system has to play it with. Any thread.
#pragma once

#include <string_view>

namespace netro {

/// Plays a wave file's bytes in the background, with the first of aplay, paplay and pw-play that
/// can be started; nothing happens where there is none, or no device.
void PlayWave(std::string_view wave);

}  // namespace netro
