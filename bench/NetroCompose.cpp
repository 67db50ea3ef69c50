// Composing with SendMailCls.

#include <fcntl.h>
#include <netro/SendMailCls.h>
#include <unistd.h>

#include "bench/Compose.h"

namespace netro::bench {
namespace {

/// As a stream of GMime does: the file is not brought to the disk.
std::size_t WriteTo(const std::string& file, SendMailCls& mail) {
  const int descriptor = open(file.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
  std::size_t size = 0;
  const bool written = mail.WriteMessage([&](std::string_view block) {
    size += block.size();
    return write(descriptor, block.data(), block.size()) == static_cast<ssize_t>(block.size());
  });
  close(descriptor);
  return written ? size : 0;
}

}  // namespace

std::string NetroCompose(const Compose& compose, Stopwatch& watch) {
  watch.Start();
  for (int i = 0; i < compose.repetitions; ++i) {
    SendMailCls mail;
    if (!mail.NewTextMsg("Measured", "A <a@x.test>", "B <b@x.test>", compose.text)) {
      return mail.ResultMessage();
    }
    for (const std::string& file : compose.files) {
      if (!mail.AddAttachment(file)) {
        return mail.ResultMessage();
      }
    }
    const std::size_t size =
        compose.output.empty() ? mail.MimeBuffer().size() : WriteTo(compose.output, mail);
    if (size < compose.leastSize) {
      return "a message of " + std::to_string(size) + " bytes";
    }
  }
  watch.Stop();
  return {};
}

}  // namespace netro::bench
