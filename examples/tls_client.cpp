// Opens a protected connection and shows what is known about the other end.
// Usage: example_tls_client [HOST [PORT]]
#include <netro/MessageLoop.h>
#include <netro/SocketCls.h>
#include <netro/tls/OpenSslTls.h>

#include <cstdlib>
#include <iostream>

namespace {

struct Outcome : netro::SocketClsEvents {
  void Connect() override { netro::MessageLoop::ForThisThread().QuitLoop(); }
  void Error(std::int32_t, const std::string& description) override {
    std::cerr << description << '\n';
    std::exit(1);
  }
};

}  // namespace

int main(int argc, char** argv) {
  const std::string host = argc > 1 ? argv[1] : "example.com";
  std::string error;
  const auto provider = netro::MakeOpenSslProvider({}, error);
  if (provider == nullptr) {
    std::cerr << error << '\n';
    return 1;
  }

  netro::SocketCls socket;
  Outcome outcome;
  socket.Events(&outcome);
  if (socket.Connect(host, argc > 2 ? std::atoi(argv[2]) : 443)) {
    netro::MessageLoop::ForThisThread().RunLoop();  // until Connect or Error
  }
  const bool isProtected = socket.StartTls(host, provider);
  if (!isProtected) std::cerr << socket.LastSocketErrMsg() << '\n';

  const netro::TlsInfo info = socket.TlsInfo();  // also of a certificate that was refused
  std::cout << info.protocol << ' ' << info.cipher << "\nsubject " << info.subject << "\nissuer  "
            << info.issuer << "\ndays    " << info.daysLeft << '\n';
  for (const std::string& name : info.names) std::cout << "name    " << name << '\n';
  return isProtected ? 0 : 1;
}
