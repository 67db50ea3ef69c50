// Finds the hosts of a network of 254 that answer at a TCP port, all asked at once, and without any
// permission: network_sweep 192.168.1 [PORT]
#include <netro/EchoCls.h>
#include <netro/MessageLoop.h>

#include <cstdlib>
#include <iostream>

struct Sweep : netro::EchoClsEvents {
  int waiting = 0;
  int found = 0;
  void Reply(std::int32_t, const std::string& host, std::int32_t microseconds, std::int32_t status,
             std::int32_t) override {
    if (status == 0) {  // a refusal is an answer too: the host is there
      ++found;
      std::cerr << host << ' ' << microseconds << " us\n";
    }
    if (--waiting == 0) netro::MessageLoop::ForThisThread().QuitLoop();
  }
};

int main(int argc, char** argv) {
  const std::string network = argc > 1 ? argv[1] : "127.0.0";
  Sweep sweep;
  netro::EchoCls echo;
  echo.Events(&sweep);
  echo.Probe(netro::EchoProbeTCP);  // EchoProbeICMP pings, where the system allows it
  echo.Port(argc > 2 ? std::atoi(argv[2]) : 80);
  for (int host = 1; host < 255; ++host) {
    if (echo.Send(network + "." + std::to_string(host), 0, 32, 2000) != 0) ++sweep.waiting;
  }
  if (sweep.waiting > 0) netro::MessageLoop::ForThisThread().RunLoop();
  std::cout << sweep.found << " hosts\n";
}
