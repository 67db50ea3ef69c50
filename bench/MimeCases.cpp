// Composing: many small messages, attachments of 100 MB in all, and attachments of growing size,
// whose cost per byte must stay the same.

#include "bench/MimeCases.h"

#include <cstdint>
#include <cstdio>
#include <fstream>
#include <functional>
#include <string>
#include <utility>

#include "bench/Cases.h"
#include "bench/Compose.h"
#include "bench/Process.h"

namespace netro::bench {
namespace {

using namespace std::string_literals;
using Composer = decltype(&NetroCompose);

constexpr std::size_t kMegabyte = 1'000'000;
constexpr int kSmallMessages = 20'000;

std::string Text() {
  std::string text;
  while (text.size() < 1000) {
    text += "Grüße aus einer Zeile, wie sie in Briefen vorkommt.\r\n";
  }
  return text;
}

bool WriteNoise(const std::string& file, std::size_t size) {
  std::string bytes(size, '\0');
  std::uint64_t state = 1;
  for (char& byte : bytes) {
    state = state * 6364136223846793005 + 1442695040888963407;
    byte = static_cast<char>(state >> 56);
  }
  std::ofstream stream(file, std::ios::binary);
  stream.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
  return stream.flush().good();
}

/// Writes the files first, in a process of its own, whose memory does not count.
enum class Way { IntoMemory, IntoFile };

std::string ComposeFiles(Composer composer, std::size_t megabytes, int count, Way way,
                         Stopwatch& watch) {
  const TempFolder folder;
  Compose compose;
  compose.text = Text();
  if (way == Way::IntoFile) compose.output = folder.Path() + "/message";
  compose.leastSize = megabytes * kMegabyte * static_cast<std::size_t>(count) * 4 / 3;
  for (int i = 0; i < count; ++i) {
    compose.files.push_back(folder.Path() + "/" + std::to_string(i) + ".bin");
  }
  ChildProcess writer([&] {
    for (const std::string& file : compose.files) {
      WriteNoise(file, megabytes * kMegabyte);
    }
  });
  writer.Wait();
  return composer(compose, watch);
}

std::string ComposeSmall(Composer composer, Stopwatch& watch) {
  Compose compose;
  compose.text = Text();
  compose.leastSize = compose.text.size();
  compose.repetitions = kSmallMessages;
  return composer(compose, watch);
}

void AddBesideGMime(const std::string& name, const std::string& unit, double units,
                    const std::function<std::string(Composer, Stopwatch&)>& work) {
#ifdef NETRO_HAVE_GMIME
  AddCase({name, "GMime", unit, units, "",
           [work](Stopwatch& watch) { return work(GMimeCompose, watch); }});
#endif
  AddCase({name, "netro", unit, units, name + "/GMime",
           [work](Stopwatch& watch) { return work(NetroCompose, watch); }});
}

}  // namespace

void AddMimeCases() {
#ifndef NETRO_HAVE_GMIME
  std::fprintf(stderr, "left out: GMime\n");
#endif
  AddBesideGMime("compose a text of 1 KB", "messages", kSmallMessages, ComposeSmall);
  constexpr std::pair<Way, const char*> kWays[] = {{Way::IntoMemory, ""},
                                                   {Way::IntoFile, ", to a file"}};
  for (const auto& [way, name] : kWays) {
    AddBesideGMime("compose 10 files of 10 MB"s + name, "MB", 100,
                   [way = way](Composer composer, Stopwatch& watch) {
                     return ComposeFiles(composer, 10, 10, way, watch);
                   });
  }
  for (const std::size_t megabytes : {1, 10, 100}) {
    const auto label = [](std::size_t size) {
      return "compose a file of " + std::to_string(size) + " MB";
    };
    AddCase({label(megabytes), "netro", "MB", static_cast<double>(megabytes),
             megabytes == 1 ? "" : label(1) + "/netro", [megabytes](Stopwatch& watch) {
               return ComposeFiles(NetroCompose, megabytes, 1, Way::IntoMemory, watch);
             }});
  }
}

}  // namespace netro::bench
