// The smallest program that needs the installed headers and library.
#include <netro/SocketCls.h>

int main() {
  netro::SocketCls socket;
  return socket.State() == netro::sockClosed ? 0 : 1;
}
