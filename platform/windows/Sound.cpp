#include "platform/Sound.h"

#include <mutex>
#include <string>

#include "platform/windows/System.h"

namespace netro {

// The bytes are read while they are played: they stay until the next ones come.
void PlayWave(std::string_view wave) {
  static std::mutex mutex;
  static auto* const playing = new std::string;  // to the end of the program
  const std::lock_guard lock(mutex);
  PlaySoundW(nullptr, nullptr, 0);
  *playing = wave;
  PlaySoundW(reinterpret_cast<const wchar_t*>(playing->data()), nullptr,
             SND_MEMORY | SND_ASYNC | SND_NODEFAULT);
}

}  // namespace netro
