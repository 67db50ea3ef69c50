// Copies a whole zone from its name server into a zone file: zone_transfer ZONE SERVER [PORT]
#include <netro/QueryDNSCLS.h>
#include <netro/RecordText.h>

#include <cstdlib>
#include <iostream>

int main(int argc, char** argv) {
  if (argc < 3) return 2;
  netro::QueryDNSCLS dns;
  dns.Domain(argv[1]);
  dns.DNSServer(argv[2]);
  dns.DNSPort(argc > 3 ? std::atoi(argv[3]) : 53);
  dns.QueryType(netro::TYPE_AXFR);
  dns.EscapeNames(true);  // as zone files have them
  dns.TotalTimeout(600);
  dns.MaxAnswer(std::int64_t{100} << 20);
  const int result = dns.QueryZone();
  std::cout << netro::ZoneFileText(dns);
  if (result != 0) std::cerr << dns.LastErrMsg() << '\n';
  return result == 0 ? 0 : 1;
}
