// Lists the routers on the way to a host, asked by datagrams, which take no permission:
// route_to HOST
#include <netro/ICMPCls.h>

#include <iostream>

struct Steps : netro::ICMPClsEvents {
  void Hop(const std::string& host, std::int32_t milliseconds, std::int32_t, bool&) override {
    std::cout << ++count << ' ';
    if (host.empty()) {
      std::cout << "nobody answers\n";
    } else {
      std::cout << host << ' ' << milliseconds << " ms\n";
    }
  }
  int count = 0;
};

int main(int argc, char** argv) {
  if (argc < 2) return 2;
  Steps steps;
  netro::ICMPCls icmp;
  icmp.Events(&steps);
  icmp.TRProbe(netro::EchoProbeUDP);
  icmp.TRTimeout(1000);
  icmp.TRDelay(0);
  if (icmp.TraceRt(argv[1])) return 0;
  std::cout << icmp.LastErrMsg() << '\n';
  return 1;
}
