// The smallest program that needs the component tls.
#include <netro/tls/OpenSslTls.h>

int main() {
  std::string error;
  netro::TlsSettings settings;
  settings.trustFile = "/nonexistent";
  return netro::MakeOpenSslProvider(settings, error) == nullptr && !error.empty() ? 0 : 1;
}
