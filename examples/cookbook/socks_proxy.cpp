// Fetches a page through a SOCKS 5 proxy, which looks the name up too: socks_proxy URL HOST PORT
#include <netro/HTTPCls.h>

#include <cstdlib>
#include <iostream>

int main(int argc, char** argv) {
  if (argc < 4) return 2;
  netro::HTTPCls http;
  http.URL(argv[1]);
  http.ProxyType(netro::ProxySocks5Auth);
  http.ProxyURL(argv[2]);
  http.ProxyPort(std::atoi(argv[3]));
  http.ProxyUser("jane");
  http.ProxyPassword("secret");
  http.ProxyUseRemoteDNS(true);

  bool timeout = false;
  const std::string answer = http.HTTPQuery(timeout);
  switch (http.LastErr()) {
    case 0:
      std::cout << http.HTTPResult() << ' ' << http.HTTPResultMsg() << '\n';
      return 0;
    case 9002:
      std::cout << "the proxy refused the password\n";
      return 1;
    default:
      std::cout << answer << '\n';
      return 1;
  }
}
