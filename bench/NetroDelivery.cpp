// Delivering with SMTPCls, one object for all sessions, or one for each task; with SendMailCls in
// one session.

#include <netro/SMTPCls.h>
#include <netro/SendMailCls.h>

#include <memory>

#include "bench/Delivery.h"
#include "bench/Tasks.h"

namespace netro::bench {
namespace {

void Prepare(SMTPSettings& smtp, const Delivery& delivery) {
  smtp.ReceiverHostName("127.0.0.1");
  smtp.Port(delivery.port);
}

std::string DeliverOnce(SMTPCls& smtp, const Delivery& delivery) {
  return smtp.SMTP("a@x.test", "b@x.test", delivery.message) ? "" : smtp.ResultMessage();
}

}  // namespace

std::string NetroDeliver(const Delivery& delivery, Stopwatch& watch) {
  SMTPCls smtp;
  Prepare(smtp, delivery);
  std::string error;
  watch.Start();
  for (int i = 0; i < delivery.repetitions && error.empty(); ++i) {
    error = DeliverOnce(smtp, delivery);
  }
  watch.Stop();
  return error;
}

std::string NetroDeliverKept(const Delivery& delivery, Stopwatch& watch) {
  SendMailCls mail;
  Prepare(mail, delivery);
  mail.KeepSession(true);
  mail.Chunking(true);
  bool good = true;
  watch.Start();
  for (int i = 0; i < delivery.repetitions && good; ++i) {
    good = mail.NewMsgFromMimeBuffer(delivery.message, "a@me.test", "b@xy.test") && mail.SendMail();
  }
  watch.Stop();
  return good ? "" : mail.ResultMessage();
}

std::string NetroDeliverMany(const Delivery& delivery, Stopwatch& watch) {
  watch.Start();
  std::string error = ShareOut(delivery.inFlight, delivery.repetitions, [&] {
    auto smtp = std::make_unique<SMTPCls>();
    Prepare(*smtp, delivery);
    return [smtp = std::move(smtp), &delivery] { return DeliverOnce(*smtp, delivery); };
  });
  watch.Stop();
  return error;
}

}  // namespace netro::bench
