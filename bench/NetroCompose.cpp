// Composing with SendMailCls.

#include <netro/SendMailCls.h>

#include "bench/Compose.h"

namespace netro::bench {

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
    if (compose.readFirst) {
      watch.Start();
    }
    if (mail.MimeBuffer().size() < compose.leastSize) {
      return "a message of " + std::to_string(mail.MimeBuffer().size()) + " bytes";
    }
  }
  watch.Stop();
  return {};
}

}  // namespace netro::bench
