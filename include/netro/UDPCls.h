// UDPCls: a small datagram client (RFC 768) that asks one host and waits for one reply.
//
// Thread: as SocketCls; only Kill and StopWaiting may come from any thread, or from a signal
// handler. Methods block, keeping the loop alive. Each clears LastErr first and leaves the number
// of its failure there: the socket's numbers, 9999 cancelled, 10002 no reply, 10036 a call of this
// object is running, 10057 there is no socket.
#pragma once

#include <netro/AddressPreference.h>
#include <netro/Export.h>
#include <netro/Types.h>

#include <chrono>
#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <utility>

namespace netro {

class CancelMark;
class DatagramSocket;
class SocketModule;
struct CallState;

class NETRO_EXPORT UDPCls {
 public:
  UDPCls();
  ~UDPCls();
  UDPCls(const UDPCls&) = delete;
  UDPCls& operator=(const UDPCls&) = delete;

  // Settings. URL, Port, DNSURL and the two options take effect with the next UPDConnect.

  /// The host: dotted address, name, or "255.255.255.255" for everybody on the network.
  const std::string& URL() const { return url_; }
  void URL(std::string value) { url_ = std::move(value); }
  /// Of the host, 1 to 65,535.
  std::int32_t Port() const { return port_; }
  void Port(std::int32_t value) { port_ = value; }
  /// Tests for a reply, and milliseconds between them.
  std::int32_t RetryCount() const { return retryCount_; }
  void RetryCount(std::int32_t value) { retryCount_ = value; }
  std::int32_t RetryPauseMilliSeconds() const { return retryPause_; }
  void RetryPauseMilliSeconds(std::int32_t value) { retryPause_ = value; }
  /// Needed for "255.255.255.255".
  bool AllowBroadcast() const { return allowBroadcast_; }
  void AllowBroadcast(bool value) { allowBroadcast_ = value; }
  /// Lets others bind the same port (SO_REUSEADDR).
  bool ReuseAddr() const { return reuseAddr_; }
  void ReuseAddr(bool value) { reuseAddr_ = value; }
  /// DNS servers for name lookups, see SocketCls::DNSURL.
  const std::string& DNSURL() const;
  void DNSURL(std::string value) { dnsURL_ = std::move(value); }
  /// Which address of a host is used, see AddressPreference.h.
  AddressPreferenceEnum AddressPreference() const { return preference_; }
  void AddressPreference(AddressPreferenceEnum value) { preference_ = value; }

  /// Makes the socket and looks the host up; an older socket is closed. On failure there is none.
  bool UPDConnect(std::int32_t& LastErr);
  /// Closes the socket; without one it succeeds as well.
  bool UDPDisconnect(std::int32_t& LastErr);

  /// Sends everything but the last byte, in datagrams of at most 4,096 bytes with a tenth of a
  /// second between them: n bytes given are n - 1 on the wire, one byte or none is no datagram.
  /// After the last datagram it waits as long again, or until a reply is there.
  bool UDPSendString(const std::string& InData, std::int32_t& LastErr);
  bool UDPSendByteArr(const Bytes& InArray, std::int32_t& LastErr);

  /// Waits for one datagram from anybody: tests RetryCount times, with a pause after each test when
  /// there are several. Returns what came and one zero byte behind it; empty on failure.
  std::string UDPPollString(std::int32_t& LastErr);

  /// Connect, send, wait for the reply, close. The reply has one zero byte behind it.
  std::string UDPQuery(const std::string& InData, std::int32_t& LastErr);
  Bytes UDPQueryBinary(const Bytes& InData, std::int32_t& LastErr);

  /// End the running call with 9999. Both are the same; any thread, signal-safe.
  void Kill();
  void StopWaiting();

  /// The text of an error number.
  std::string TranslateErrorMsg(std::int32_t ErrorNr) const;

 private:
  template <class Call>
  auto Run(std::int32_t& lastErr, Call call) -> decltype(call(std::declval<const CancelMark&>()));
  std::int32_t Open(const CancelMark& mark);
  std::int32_t SendAllButLast(std::span<const std::uint8_t> data, const CancelMark& mark);
  std::int32_t Send(std::span<const std::uint8_t> data, const CancelMark& mark);
  std::int32_t Poll(Bytes& reply, const CancelMark& mark);
  std::int32_t Pause(std::chrono::milliseconds time, bool untilReadable, const CancelMark& mark);
  std::int32_t Query(std::span<const std::uint8_t> data, Bytes& reply, const CancelMark& mark);

  std::shared_ptr<SocketModule> module_;
  std::shared_ptr<CallState> call_;
  std::unique_ptr<DatagramSocket> socket_;
  bool counted_ = false;

  std::string url_;
  std::int32_t port_ = 0;
  std::int32_t retryCount_ = 3;
  std::int32_t retryPause_ = 333;
  bool allowBroadcast_ = false;
  bool reuseAddr_ = false;
  std::optional<std::string> dnsURL_;  // none: the default list
  AddressPreferenceEnum preference_ = preferIPv4;
};

}  // namespace netro
