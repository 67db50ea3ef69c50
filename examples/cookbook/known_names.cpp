// Looks a name up, and remembers it in a file for the next run: known_names NAME FILE [DNS-SERVER]
#include <netro/SocketCls.h>

#include <iostream>

int main(int argc, char** argv) {
  if (argc < 3) return 2;
  netro::SocketCls socket;
  if (argc > 3) socket.DNSURL(argv[3]);
  const bool isNew = socket.RestoreDNSCache(argv[2]) < 1;  // what is past its time is left out
  const std::string address = socket.DNSLookup(argv[1]);
  if (address.empty()) {
    std::cout << socket.DNSLastErrMsg() << '\n';
    return 1;
  }
  std::cout << address << (isNew ? ", looked up\n" : ", known\n");
  return socket.SaveDNSCache(argv[2]) < 0 ? 1 : 0;
}
