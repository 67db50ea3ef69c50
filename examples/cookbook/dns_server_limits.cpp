// Tells what a DNS server says of itself by EDNS: dns_server_limits SERVER [PORT]
#include <netro/QueryDNSCLS.h>

#include <cstdlib>
#include <iostream>

int main(int argc, char** argv) {
  if (argc < 2) return 2;
  netro::QueryDNSCLS dns;
  dns.DNSServer(argv[1]);
  if (argc > 2) dns.DNSPort(std::atoi(argv[2]));
  dns.Domain(".");
  dns.QueryType(netro::TYPE_NS);
  dns.QueryID(-1);
  dns.DNSSECOK(true);
  dns.QueryDNS();
  if (dns.ReplyCode() < 0) {  // no reply; one that refuses tells as much
    std::cout << dns.LastErrMsg() << '\n';
    return 1;
  }
  const netro::EDNSCLS* edns = dns.EDNS();
  if (edns == nullptr) {
    std::cout << "it knows no EDNS\n";
    return 1;
  }
  std::cout << "datagrams up to " << edns->UDPSize() << " bytes, DNSSEC "
            << (edns->DNSSECOK() ? "yes" : "no") << '\n';
}
