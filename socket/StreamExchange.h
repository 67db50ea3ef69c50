// One exchange over TCP: connect, directly or through a SOCKS proxy, send a request, take what
// comes. A protocol class makes one on the caller's stack and says when the reply is complete. It
// runs under the caller's cancellation and touches nothing that an event may delete.
#pragma once

#include <netro/SocketCls.h>

#include <cstdint>
#include <optional>
#include <span>
#include <string>

#include "socket/OpenConnection.h"

namespace netro {

class StreamExchange : private SocketClsEvents {
 public:
  explicit StreamExchange(const CancelMark& mark) : mark_(mark) {}

  /// Returns what End was given, or the error number of what failed before. Connecting, each reply
  /// of a proxy, and the wait for the reply may take the plan's seconds each.
  std::int32_t Run(const ConnectionPlan& plan);
  /// True once the connection was open.
  bool Connected() const { return connected_; }

 protected:
  ~StreamExchange() = default;

  /// What to send, asked for when the connection is open; empty: nothing.
  virtual std::string Request() = 0;
  /// Bytes of the reply; not called any more after End.
  virtual void Arrived(std::span<const std::uint8_t> bytes) = 0;
  /// The peer closed, with 0 orderly, before the exchange had ended; the result is returned.
  virtual std::int32_t PeerClosed(std::int32_t error) = 0;
  void End(std::int32_t code);
  bool Ended() const { return ended_; }
  /// The wait for the reply begins anew.
  void Progress() {
    patience_.reset();
    ++progress_;
  }
  /// The same, for so many seconds only: when nothing more has come then, the exchange ends with 0.
  void EndAfter(long seconds) {
    Progress();
    patience_ = std::chrono::seconds(seconds);
  }

 private:
  std::int32_t Send();
  std::int32_t Await(const ConnectionPlan& plan);
  void DataArrival(const Bytes& BinData, const std::string& RemoteHostIP) override;
  void Closed() override;

  const CancelMark& mark_;
  SocketCls socket_;
  std::uint64_t progress_ = 0;
  std::optional<std::chrono::milliseconds> patience_;
  bool connected_ = false;
  bool ended_ = false;
  std::int32_t code_ = 0;
};

}  // namespace netro
