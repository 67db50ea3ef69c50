// A datagram socket with one target, for UDPCls and for exchanges. It keeps the first datagram that
// arrives, or the first one that is wanted, until it is taken; further ones wait in the system. On
// its owner's thread.
#pragma once

#include <netro/Types.h>

#include <cstdint>
#include <functional>
#include <memory>
#include <span>
#include <utility>

#include "platform/CallState.h"
#include "platform/Notifier.h"

namespace netro {

class DatagramSocket final : private SocketWatcher {
 public:
  /// `call` is told of what arrives and of room to send.
  DatagramSocket(Notifier& notifier, std::shared_ptr<CallState> call)
      : notifier_(notifier), call_(std::move(call)) {}
  ~DatagramSocket();
  DatagramSocket(const DatagramSocket&) = delete;
  DatagramSocket& operator=(const DatagramSocket&) = delete;

  struct Options {
    bool reuseAddress = false;
    bool broadcast = false;
    bool connected = false;  // the target alone is heard, and its refusal ends a wait
    bool dated = false;      // Arrival is told by the system
  };

  /// Tells whether a datagram is a reply to what was sent.
  using Filter = std::function<bool(std::span<const std::uint8_t>)>;
  /// From now on only datagrams that `wanted` takes are kept; others are dropped. For sockets that
  /// are connected.
  void TakeOnly(Filter wanted) { wanted_ = std::move(wanted); }

  /// Both return the error number.
  std::int32_t Open(const Options& options, const SocketAddress& target);
  std::int32_t Send(std::span<const std::uint8_t> datagram);

  const SocketAddress& Target() const { return target_; }
  /// Makes an open socket that of another exchange, until End.
  void Begin(std::shared_ptr<CallState> call, Filter wanted);
  /// What comes from now on is left to the next exchange, which does not want it.
  void End();
  int Exchanges() const { return exchanges_; }

  /// True while a datagram, or an error, waits to be taken.
  bool Readable() const { return readable_; }
  /// Of what Readable tells of.
  std::int32_t Error() const { return error_; }
  /// When it came to this system, which may be long before anybody looked.
  TimePoint Arrival() const { return arrival_; }
  bool SendBlocked() const { return sendBlocked_; }
  /// Takes what Readable tells of; returns the error number. With a filter that is the last one.
  std::int32_t Take(Bytes& reply);
  /// With a filter: what was taken was not the last one after all.
  void ListenOn() { notifier_.Renew(handle_); }

 private:
  void OnSocket(std::int32_t handle, SocketEvent event, std::int32_t error) override;

  Notifier& notifier_;
  std::shared_ptr<CallState> call_;
  int exchanges_ = 0;
  std::int32_t handle_ = 0;
  SocketAddress target_;
  bool connected_ = false;
  Filter wanted_;
  bool readable_ = false;
  Bytes reply_;
  std::int32_t error_ = 0;
  bool dated_ = false;
  TimePoint arrival_;
  bool sendBlocked_ = false;
};

}  // namespace netro
