// A host with Qt's event loop (QtCore only), which watches the library's loop with a
// QSocketNotifier.
//
// This is a self-check: 20 pages and 100 names are asked for at once, see ManyCalls.h.
#include <netro/MessageLoop.h>

#include <QCoreApplication>
#include <QSocketNotifier>
#include <QTimer>

#include "ManyCalls.h"

int main(int argc, char** argv) {
  QCoreApplication application(argc, argv);
  netro::MessageLoop& library = netro::MessageLoop::ForThisThread();
  QSocketNotifier notifier(library.LoopFd(), QSocketNotifier::Read);
  QObject::connect(&notifier, &QSocketNotifier::activated, [&library] { library.PumpMessages(); });

  ManyCalls calls([] { QCoreApplication::quit(); });
  QTimer timer;
  timer.setTimerType(Qt::PreciseTimer);
  QObject::connect(&timer, &QTimer::timeout, [&calls] { calls.Tick(); });
  timer.start(ManyCalls::kTick);
  QCoreApplication::exec();
  return calls.Result();
}
