// Tells whether somebody listens at a port, and after how long: port_open HOST PORT
#include <netro/MessageLoop.h>
#include <netro/SocketCls.h>

#include <cstdlib>
#include <iostream>

struct Outcome : netro::SocketClsEvents {
  std::string text = "no answer";
  void Connect() override { End("open"); }
  void Error(std::int32_t, const std::string& description) override { End(description); }
  void End(const std::string& what) {
    text = what;
    netro::MessageLoop::ForThisThread().QuitLoop();
  }
};

int main(int argc, char** argv) {
  if (argc < 3) return 2;
  netro::MessageLoop& loop = netro::MessageLoop::ForThisThread();
  Outcome outcome;
  netro::SocketCls socket;
  socket.Events(&outcome);
  const int timer = loop.SetTimer(3000, [&] { loop.QuitLoop(); });
  if (socket.Connect(argv[1], std::atoi(argv[2]))) {
    loop.RunLoop();
  } else {
    outcome.text = socket.LastSocketErrMsg();
  }
  loop.KillTimer(timer);
  std::cout << outcome.text << '\n';
  return outcome.text == "open" ? 0 : 1;
}
