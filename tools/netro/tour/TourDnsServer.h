// The DNS server of the tour (RFC 1035), over UDP and TCP, for the zone agrabah.tour, the
// address of its palace, and the mail exchanger of bazaar.tour, which is this computer. Thread: the
// loop's.
#pragma once

#include <netro/SocketCls.h>

#include <cstdint>
#include <string>

#include "tour/TourJournal.h"
#include "tour/TourServers.h"

namespace netro::tool {

class TourDnsServer : public SocketClsEvents {
 public:
  explicit TourDnsServer(TourJournal& journal);

  std::int32_t UdpPort() const { return socket_.LocalPort(); }
  std::int32_t TcpPort() const { return tcp_.Port(); }
  /// Questions that came over UDP.
  int UdpQueries() const { return udpQueries_; }

 private:
  void DataArrival(const Bytes& BinData, const std::string& RemoteHostIP) override;

  TourJournal& journal_;
  TourServer tcp_;
  SocketCls socket_;
  int udpQueries_ = 0;
};

}  // namespace netro::tool
