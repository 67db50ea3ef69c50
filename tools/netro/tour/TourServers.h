// The servers of the tour: what they have in common, and what each of them offers. All run on the
// loop of the thread that created them, so they answer while the tour's own calls block.
//
// A server is a listening SocketCls; each connection that it accepts is a TourPeer with a SocketCls
// of its own. Peers stay until their server goes: a tour has few, and none is destroyed while one
// of its functions is still running.
#pragma once

#include <netro/SocketCls.h>

#include <cstdint>
#include <functional>
#include <list>
#include <memory>
#include <string>
#include <string_view>

#include "tour/TourJournal.h"

namespace netro::tool {

/// One accepted connection.
class TourPeer : public SocketClsEvents {
 public:
  /// `server` is the name under which the journal shows the connection.
  TourPeer(std::string server, TourJournal& journal);

  virtual void Accept(std::int32_t requestId);

 protected:
  /// More bytes stand at the end of input_; take what is understood off its front.
  virtual void Receive() = 0;

  /// `meaning` explains bytes that are no text.
  void Send(const std::string& bytes, const std::string& meaning = {});
  void Record(const std::string& bytesFromClient, const std::string& meaning = {});
  /// Sends without a record: bytes that only pass through.
  void Forward(const std::string& bytes) { socket_.SendData(bytes); }
  void Close() { socket_.Disconnect(); }

  std::string input_;

 private:
  void DataArrival(const Bytes& BinData, const std::string& RemoteHostIP) override;
  void Closed() override { Close(); }

  const std::string server_;
  TourJournal& journal_;
  SocketCls socket_;
};

/// Listens on a free port of the loopback interface.
class TourServer : public SocketClsEvents {
 public:
  using PeerMaker = std::function<std::unique_ptr<TourPeer>()>;

  explicit TourServer(PeerMaker makePeer);

  bool IsListening() const { return socket_.State() == sockListening; }
  std::int32_t Port() const { return socket_.LocalPort(); }

 private:
  void ConnectionRequest(std::int32_t RequestID) override;

  const PeerMaker makePeer_;
  std::list<std::unique_ptr<TourPeer>> peers_;
  SocketCls socket_;
};

/// The host name that only the proxies of the tour know; they take it for this computer.
inline constexpr const char* kTourHost = "somewhere.tour";

/// The user that every server and proxy of the tour accepts.
inline constexpr const char* kTourUser = "Aladdin";
inline constexpr const char* kTourPassword = "open sesame";

/// What /picture answers: a PNG picture of one pixel.
inline constexpr std::string_view kTourPicture(
    "\x89PNG\r\n\x1a\n\0\0\0\rIHDR\0\0\0\1\0\0\0\1\x08\6\0\0\0\x1f\x15\xc4\x89\0\0\0\rIDATx\xda"
    "c\xfc\xcf\xc0P\x0f\0\4\x85\1\x80\x84\xa9\x8c!\0\0\0\0IEND\xae"
    "B`\x82",
    70);

/// Returns whatever it receives, then closes.
TourServer::PeerMaker EchoServer(TourJournal& journal);

/// Paths: /hello, /echo (returns the body of a POST), /chunked, /basic and /digest (ask for
/// credentials), /picture (binary), /slow (answers after 300 ms), /silent (never answers).
TourServer::PeerMaker HttpServer(TourJournal& journal);

/// Asks for Basic credentials, then passes requests in absolute form on.
TourServer::PeerMaker HttpProxy(TourJournal& journal);

/// SOCKS 4, 4a and 5, without a user or with the user above.
TourServer::PeerMaker SocksProxy(TourJournal& journal);

}  // namespace netro::tool
