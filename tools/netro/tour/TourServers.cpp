// What the servers of the tour have in common, and the smallest of them.

#include "tour/TourServers.h"

#include <utility>

namespace netro::tool {

TourPeer::TourPeer(std::string server, TourJournal& journal)
    : server_(std::move(server)), journal_(journal) {
  socket_.Events(this);
}

void TourPeer::Accept(std::int32_t requestId) { socket_.Accept(requestId); }

void TourPeer::Send(const std::string& bytes, const std::string& meaning) {
  journal_.Add({server_, false, bytes, meaning});
  socket_.SendData(bytes);
}

void TourPeer::Record(const std::string& bytesFromClient, const std::string& meaning) {
  journal_.Add({server_, true, bytesFromClient, meaning});
}

void TourPeer::DataArrival(const Bytes& BinData, const std::string&) {
  input_.append(BinData.begin(), BinData.end());
  Receive();
}

TourServer::TourServer(PeerMaker makePeer) : makePeer_(std::move(makePeer)) {
  socket_.Events(this);
  socket_.Listen("127.0.0.1");
}

void TourServer::ConnectionRequest(std::int32_t RequestID) {
  peers_.push_back(makePeer_());
  peers_.back()->Accept(RequestID);
}

namespace {

class EchoPeer : public TourPeer {
 public:
  explicit EchoPeer(TourJournal& journal) : TourPeer("Echo server", journal) {}

 private:
  void Receive() override {
    if (!input_.ends_with('\n')) return;
    Record(input_);
    Send(input_);
    Close();
  }
};

}  // namespace

TourServer::PeerMaker EchoServer(TourJournal& journal) {
  return [&journal] { return std::make_unique<EchoPeer>(journal); };
}

}  // namespace netro::tool
