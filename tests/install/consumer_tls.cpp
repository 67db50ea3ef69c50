// The smallest program that needs the component for TLS.
#include <netro/tls/OpenSslTls.h>

int main() {
  std::string error;
  const auto provider = netro::MakeOpenSslProvider({}, error);
  return provider != nullptr && provider->NewSession("localhost", 443) != nullptr ? 0 : 1;
}
