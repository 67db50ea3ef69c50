#include "platform/Sound.h"

#include <glob.h>
#include <unistd.h>

#include <cstdlib>
#include <string>

#include "platform/Program.h"

namespace netro {
namespace {

bool HasCard() {
  glob_t found{};
  const bool any = glob("/dev/snd/pcm*p", GLOB_NOSORT, nullptr, &found) == 0;
  globfree(&found);
  return any;
}

// The socket of the user's sound server.
bool HasServer(const char* name) {
  const char* folder = std::getenv("XDG_RUNTIME_DIR");
  return folder != nullptr && access((std::string(folder) + name).c_str(), F_OK) == 0;
}

bool Play(const char* player, std::string_view wave) {
  return StartProgram(player, {"/dev/stdin"}, wave) == 0;
}

}  // namespace

void PlayWave(std::string_view wave) {
  if (HasServer("/pulse/native") && Play("paplay", wave)) return;
  if (HasServer("/pipewire-0") && Play("pw-play", wave)) return;
  if (HasCard()) Play("aplay", wave);
}

}  // namespace netro
