// Sends a datagram and prints the reply: udp_ask HOST PORT TEXT
#include <netro/UDPCls.h>

#include <cstdlib>
#include <iostream>

int main(int argc, char** argv) {
  if (argc < 4) return 2;
  netro::UDPCls udp;
  udp.URL(argv[1]);
  udp.Port(std::atoi(argv[2]));
  udp.RetryCount(4);  // looks for a reply so often
  udp.RetryPauseMilliSeconds(500);

  std::int32_t error = 0;
  const std::string text = argv[3];
  std::string reply = udp.UDPQuery(text + '\0', error);  // the last byte is not sent
  if (error != 0) {
    std::cout << udp.TranslateErrorMsg(error) << '\n';
    return 1;
  }
  reply.pop_back();  // the reply has a zero byte behind it
  std::cout << reply << '\n';
}
