// Lists the mail exchangers of a domain: mx_records DOMAIN [SERVER PORT]
#include <netro/FindDNSCLS.h>
#include <netro/QueryDNSCLS.h>

#include <cstdlib>
#include <iostream>

int main(int argc, char** argv) {
  if (argc < 2) return 2;
  netro::QueryDNSCLS dns;
  dns.Domain(argv[1]);
  dns.QueryType(netro::TYPE_MX);
  dns.QueryID(-1);  // a random one for each query
  dns.UDPSize(1232);
  dns.FollowTruncation(true);
  if (argc > 3) {
    dns.DNSServer(argv[2]);
    dns.DNSPort(std::atoi(argv[3]));
  } else {
    dns.DNSServer(netro::FindDNSCLS().Servers().front());  // the system's
  }
  if (dns.QueryDNS() != 0) {
    std::cout << dns.LastErr() << ' ' << dns.LastErrMsg() << '\n';
    return 1;
  }
  for (int i = 1; i <= dns.Count(); ++i) {  // counted from 1
    const netro::DNSCLS& record = *dns.Entry(i);
    if (record.DataType() != netro::TYPE_MX) continue;
    std::cout << record.Pref() << ' ' << record.Data() << " (" << record.TTL() << " s)\n";
  }
}
