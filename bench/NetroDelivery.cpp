// Delivering with SMTPCls, one object for all sessions.

#include <netro/SMTPCls.h>

#include "bench/Delivery.h"

namespace netro::bench {

std::string NetroDeliver(const Delivery& delivery, Stopwatch& watch) {
  SMTPCls smtp;
  smtp.ReceiverHostName("127.0.0.1");
  smtp.Port(delivery.port);
  watch.Start();
  for (int i = 0; i < delivery.repetitions; ++i) {
    if (!smtp.SMTP("a@x.test", "b@x.test", delivery.message)) {
      return smtp.ResultMessage();
    }
  }
  watch.Stop();
  return {};
}

}  // namespace netro::bench
