// Resolves names in a program with a loop of its own, as those with windows have, which never
// stops: gui_resolve DNS-SERVER NAME...
#include <netro/Async.h>
#include <netro/SocketCls.h>
#include <poll.h>

#include <iostream>

std::string AddressOf(const std::string& name, const std::string& server) {
  netro::SocketCls socket;
  socket.DNSURL(server);
  const std::string address = socket.DNSLookup(name);
  return address.empty() ? socket.DNSLastErrMsg() : address;
}

int main(int argc, char** argv) {
  if (argc < 3) return 2;
  const std::string server = argv[1];
  int open = argc - 2;
  for (int i = 2; i < argc; ++i) {
    const std::string name = argv[i];
    netro::Async([=] { return AddressOf(name, server); },
                 [name, &open](const std::string& address) {
                   std::cout << name + ": " + address + "\n";
                   --open;
                 });
  }
  // Yours: GLib, Qt, libuv, Asio ... docs/host-loops.md has a program for each.
  netro::MessageLoop& loop = netro::MessageLoop::ForThisThread();
  pollfd watched[] = {{loop.LoopFd(), POLLIN, 0}};
  while (open > 0 && poll(watched, 1, 100) >= 0) loop.PumpMessages();
}
