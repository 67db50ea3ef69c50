// Fetches a page by https from a server whose public key is known: https_pinned URL PIN [TRUST]
#include <netro/HTTPCls.h>
#include <netro/tls/OpenSslTls.h>

#include <iostream>

int main(int argc, char** argv) {
  if (argc < 3) return 2;
  netro::TlsSettings settings;
  settings.pins = {argv[2]};  // "sha256//" and Base64, checked besides the certificate
  if (argc > 3) settings.trustFile = argv[3];  // instead of the system's authorities
  std::string error;
  const auto tls = netro::MakeOpenSslProvider(settings, error);
  if (tls == nullptr) {
    std::cerr << error << '\n';
    return 2;
  }

  netro::HTTPCls http;
  http.Tls(tls);
  http.URL(argv[1]);
  bool timeout = false;
  const std::string answer = http.HTTPQuery(timeout);
  if (http.LastErr() == netro::tlsPinMismatch) {
    std::cout << "This is another key: " << answer << '\n';
    return 1;
  }
  std::cout << (http.LastErr() == 0 ? http.TlsInfo().protocol : answer) << '\n';
  return http.LastErr() == 0 ? 0 : 1;
}
