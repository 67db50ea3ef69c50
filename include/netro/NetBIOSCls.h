// NetBIOSCls: hardware (MAC) addresses: of this host's network adapters, of a host that answers a
// NetBIOS node status request (RFC 1002, section 4.2.17), and of a neighbour by ARP (RFC 826) or,
// with IPv6, neighbour discovery (RFC 4861).
//
// Thread: as SocketCls; only Kill and StopWaiting may come from any thread, or from a signal
// handler. GetMacAddress and GetRemoteMACAddress block, keeping the loop alive.
#pragma once

#include <netro/Export.h>

#include <array>
#include <cstdint>
#include <memory>
#include <string>
#include <utility>

namespace netro {

class SocketModule;
struct CallState;

/// The adapter status as it is kept; the properties of NetBIOSCls tell what it means.
struct AdapterStatus {
  std::array<std::uint8_t, 6> address{};
  std::uint8_t revMajor = 0;
  std::uint8_t adapterType = 0;
  std::uint8_t revMinor = 0;
  std::int16_t duration = 0;
  std::int16_t frmrRecv = 0;
  std::int16_t frmrXmit = 0;
  std::int16_t iframeRecvErr = 0;
  std::int16_t xmitAborts = 0;
  std::int32_t xmitSuccess = 0;
  std::int32_t recvSuccess = 0;
  std::int16_t iframeXmitErr = 0;
  std::int16_t recvBuffUnavail = 0;
  std::int16_t t1Timeouts = 0;
  std::int16_t tiTimeouts = 0;
  std::int16_t freeNcbs = 0;
  std::int16_t maxCfgNcbs = 0;
  std::int16_t maxNcbs = 0;
  std::int16_t xmitBufUnavail = 0;
  std::int16_t maxDgramSize = 0;
  std::int16_t pendingSess = 0;
  std::int16_t maxCfgSess = 0;
  std::int16_t maxSess = 0;
  std::int16_t maxSessPktSize = 0;
  std::int16_t nameCount = 0;
};

class NETRO_EXPORT NetBIOSCls {
 public:
  NetBIOSCls();
  ~NetBIOSCls();
  NetBIOSCls(const NetBIOSCls&) = delete;
  NetBIOSCls& operator=(const NetBIOSCls&) = delete;

  /// Reads an adapter's status into the properties. An empty HostName, "*" and this host's own name
  /// mean an adapter of this host: the one with the number Adapter, counted from 0 in the system's
  /// order without loopback. Any other is the name or address of a host to ask, four times with a
  /// second to answer; Adapter, from 0 to 253, does not matter then.
  ///
  /// False: ErrorCode tells why, and no property has changed. 0x05 no reply; 0x06 a malformed
  /// reply; 0x09 no memory; 0x0B cancelled; 0x14 no such host; 0x21 a call of this object is
  /// running; 0x23 no such adapter, as always below 0 and from 254 on; 0x40 a failure of the
  /// system.
  bool GetMacAddress(std::int16_t Adapter, std::string HostName, std::string Divider,
                     std::int32_t& ErrorCode);

  /// Finds the hardware address of an IPv4 or IPv6 address (a link-local one with its zone), an own
  /// one or one on a network of this host, and sets MacAddress; the other properties stay. Takes up
  /// to a second. False when nobody answers, for loopback, broadcast and multicast, when cancelled,
  /// or when a call is running.
  bool GetRemoteMACAddress(const std::string& sRemoteIP, std::string Divider);

  /// The text of an ErrorCode; empty for 0.
  std::string GetErrorText(std::int32_t ResultCode) const;

  /// End the running call, GetMacAddress with 0x0B. Both are the same; any thread, signal-safe.
  void StopWaiting();
  void Kill();

  /// Stored; nothing depends on it.
  bool Logging() const { return logging_; }
  void Logging(bool value) { logging_ = value; }

  /// The six bytes as upper-case hexadecimal digits with the call's Divider between them; all zero
  /// for an adapter without an address.
  const std::string& MacAddress() const { return macAddress_; }

  // The status from the last GetMacAddress that succeeded. What the adapter does not tell is 0;
  // larger numbers than fit come out as negative ones, or of an own adapter as the largest.

  /// Version of the NetBIOS software, with RevMinor.
  std::uint8_t RevMajor() const { return status_.revMajor; }
  /// 0xFE: Ethernet; only of an own adapter.
  std::uint8_t AdapterType() const { return status_.adapterType; }
  /// See RevMajor.
  std::uint8_t RevMinor() const { return status_.revMinor; }
  /// Minutes that the counters cover.
  std::int16_t Duration() const { return status_.duration; }

  // Frames received and sent, and what went wrong with them.
  std::int16_t FrmrRecv() const { return status_.frmrRecv; }
  std::int16_t FrmrXmit() const { return status_.frmrXmit; }
  std::int16_t IframeRecvErr() const { return status_.iframeRecvErr; }
  std::int16_t XmitAborts() const { return status_.xmitAborts; }
  std::int32_t XmitSuccess() const { return status_.xmitSuccess; }
  std::int32_t RecvSuccess() const { return status_.recvSuccess; }
  std::int16_t IframeXmitErr() const { return status_.iframeXmitErr; }
  std::int16_t RecvBuffUnavail() const { return status_.recvBuffUnavail; }
  std::int16_t T1Timeouts() const { return status_.t1Timeouts; }
  std::int16_t TiTimeouts() const { return status_.tiTimeouts; }
  std::int16_t XmitBufUnavail() const { return status_.xmitBufUnavail; }

  // Command blocks, sessions and names of the host's NetBIOS.
  std::int16_t FreeNcbs() const { return status_.freeNcbs; }
  std::int16_t MaxCfgNcbs() const { return status_.maxCfgNcbs; }
  std::int16_t MaxNcbs() const { return status_.maxNcbs; }
  std::int16_t MaxDgramSize() const { return status_.maxDgramSize; }
  std::int16_t PendingSess() const { return status_.pendingSess; }
  std::int16_t MaxCfgSess() const { return status_.maxCfgSess; }
  std::int16_t MaxSess() const { return status_.maxSess; }
  std::int16_t MaxSessPktSize() const { return status_.maxSessPktSize; }
  std::int16_t NameCount() const { return status_.nameCount; }

 private:
  std::shared_ptr<SocketModule> module_;
  std::shared_ptr<CallState> call_;
  AdapterStatus status_;
  std::string macAddress_;
  bool logging_ = false;
};

}  // namespace netro
