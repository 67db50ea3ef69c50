// SocketCls: one asynchronous socket, the ground that every client class stands on.
//
// Thread: an object belongs to the thread that created it; all its methods and events run there.
// Only Kill and StopWaiting may be called from any thread, or from a signal handler.
//
// Errors are values: a method returns false (or a number) and leaves the number in LastSocketErr,
// its text in LastSocketErrMsg(). Numbers are those of the classic socket interface (10061
// "Connection Refused" ...), 9000-9003 for SOCKS, 9999 cancelled, 10002 timed out.
#pragma once

#include <netro/AddressPreference.h>
#include <netro/Export.h>
#include <netro/NameLookups.h>
#include <netro/SocketData.h>
#include <netro/Tls.h>
#include <netro/Types.h>

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace netro {

class CancelMark;
class ConnectRace;
class QueueHold;
class SendQueue;
class SocketModule;
class SocketOwner;
class SocksDialogue;
struct SocksTarget;
class TlsStream;
enum class SocketKind : std::int32_t;
struct CallState;
struct LookupAnswer;
struct SocketAddress;

/// Connection state of a socket. There is no value 0.
enum SockType : std::int32_t {
  sockClosed = 1,
  sockListening = 2,
  sockConnecting = 3,
  sockConnected = 4,
};

/// Receives the events of a SocketCls.
///
/// Order: Connect once, or Error once and nothing more; then SendComplete and DataArrival any
/// number of times; Closed once, after the last DataArrival. A listening socket raises
/// ConnectionRequest only. Properties are up to date before the event that tells of them.
///
/// Inside an event everything is allowed: deleting the socket, calling any of its methods, starting
/// a blocking call on another object (during which further events arrive, of this socket as well;
/// SocketIsBusy holds off its DataArrival).
///
/// What an event throws leaves through the pump that raised it and through every blocking call that
/// waits in it. Such a call is over as if it had been cancelled: what it opened is closed, a file
/// half written is removed, and the object can be used again at once; but LastErr and results tell
/// nothing of it. No other object notices. The same holds for timers, posted tasks and the host
/// pump, and for the events of every class.
class NETRO_EXPORT SocketClsEvents {
 public:
  virtual ~SocketClsEvents() = default;

  /// The connection is open.
  virtual void Connect() {}
  /// The peer closed or reset the connection. Sending is still possible after a half-close.
  virtual void Closed() {}
  /// The socket can be written again; also raised right after Connect. While data is queued it is
  /// not raised: it comes when the system has taken the last of it, or has refused it after Closed
  /// was raised, and at the end of DisconnectWhenSent. It does not tell that data has reached the
  /// peer.
  virtual void SendComplete() {}
  /// A block of 1 to 16,000 bytes has arrived; a longer stream comes in several blocks.
  virtual void DataArrival(const Bytes& BinData, const std::string& RemoteHostIP) {
    (void)BinData, (void)RemoteHostIP;
  }
  /// A connection waits to be taken over with Accept(RequestID) on another object.
  virtual void ConnectionRequest(std::int32_t RequestID) { (void)RequestID; }
  /// The connection could not be opened; `Error` is the number, `Description` its text.
  virtual void Error(std::int32_t Error, const std::string& Description) {
    (void)Error, (void)Description;
  }
};

class NETRO_EXPORT SocketCls : public NameLookups {
 public:
  SocketCls();
  ~SocketCls();
  SocketCls(const SocketCls&) = delete;
  SocketCls& operator=(const SocketCls&) = delete;

  /// The sink of this object's events; not owned, may be null.
  SocketClsEvents* Events() const { return events_; }
  void Events(SocketClsEvents* sink) { events_ = sink; }

  /// The system's descriptor, 0 when there is none.
  std::int32_t SocketHandle() const { return socketHandle_; }
  /// What the socket does; up to date in every event.
  SockType State() const { return state_; }
  /// Own and peer address as text, dotted or as RFC 5952 has it, and port, refreshed by connect,
  /// accept and listen, and for the peer by each datagram; empty and 0 when closed.
  const std::string& LocalIP() const { return localIP_; }
  const std::string& RemoteIP() const { return remoteIP_; }
  std::int32_t RemotePort() const { return remotePort_; }
  /// Own port; set it before Listen to choose the port (0: any free one).
  std::int32_t LocalPort() const { return localPort_; }
  void LocalPort(std::int32_t value) { localPort_ = value; }
  /// Number of the last failure; 0 when there was none yet.
  std::int32_t LastSocketErr() const { return lastSocketErr_; }
  /// Seconds to wait for each reply of a SOCKS proxy.
  std::int32_t SocksTimeout() const { return socksTimeout_; }
  void SocksTimeout(std::int32_t value) { socksTimeout_ = value; }
  /// Listen makes a datagram socket instead of a listening one. Takes effect with the next Listen.
  bool UseUDP() const { return useUDP_; }
  void UseUDP(bool value) { useUDP_ = value; }
  /// Options set before bind, for the next Listen. EnableBroadcast is AllowBroadcast's counterpart
  /// for datagram sockets.
  bool ReuseAddr() const { return reuseAddr_; }
  void ReuseAddr(bool value) { reuseAddr_ = value; }
  bool AllowBroadcast() const { return allowBroadcast_; }
  void AllowBroadcast(bool value) { allowBroadcast_ = value; }
  bool EnableBroadcast() const { return enableBroadcast_; }
  void EnableBroadcast(bool value) { enableBroadcast_ = value; }
  /// True once the peer has closed.
  bool ClosedByClient() const { return closedByClient_; }
  void ClosedByClient(bool value) { closedByClient_ = value; }
  /// While true, arriving data stays in the system; it is delivered soon after the change to false.
  bool SocketIsBusy() const { return socketIsBusy_; }
  void SocketIsBusy(bool value);
  /// Small blocks go out at once. Without it, a small block behind another one waits for the peer
  /// to confirm that one, which may take it 40 ms. Takes effect at once and stays for further
  /// connections.
  bool NoDelay() const { return noDelay_; }
  void NoDelay(bool value);
  /// How many bytes QueueData may hold. Takes effect with the next QueueData.
  std::size_t SendBufferLimit() const { return sendBufferLimit_; }
  void SendBufferLimit(std::size_t value) { sendBufferLimit_ = value; }
  /// How many it holds: what the system has not taken yet.
  std::size_t QueuedBytes() const;
  /// A pointer of the owner's, stored and returned only.
  void* PageFactory() const { return pageFactory_; }
  void PageFactory(void* value) { pageFactory_ = value; }
  /// Result of the last name lookup: 0, 59 (no such host), 11004 (no address of the wanted kind),
  /// 11002 (nobody could tell: the servers fail, refuse or are silent), 9999, 10002 (the time-out
  /// of the call that needed it), 10022 (DNSURL cannot be read), 10036 or 10055, and its text.
  std::int32_t DNSLastErr() const { return dnsLastErr_; }
  const std::string& DNSLastErrMsg() const { return dnsLastErrMsg_; }
  /// Which addresses of a name Connect and DNSLookup use. With one of the last two, addresses of
  /// the other family are refused with 11004.
  AddressPreferenceEnum AddressPreference() const { return preference_; }
  void AddressPreference(AddressPreferenceEnum value) { preference_ = value; }
  /// DNS servers for name lookups as "host[:port]" separated by commas, an IPv6 address in brackets
  /// ("[2001:db8::1]:53"); empty: the system's resolver. Until it is set, the system's servers that
  /// answer an echo: they are looked for when this thread first asks for them or needs them, which
  /// takes up to half a second.
  const std::string& DNSURL() const;
  void DNSURL(std::string value) { dnsURL_ = std::move(value); }

  /// Begins to connect to an address or host name (a name is looked up first, which blocks
  /// but keeps the loop alive). True: under way, the outcome comes as Connect or Error, never
  /// inside this call. False: LastSocketErr tells why, the socket is closed. An open connection is
  /// closed first. While a blocking call of this object is running it is refused with 10036; a
  /// SendData whose connection is over (State sockClosed) does not count and returns 10057.
  bool Connect(const std::string& Host, std::int32_t Port);

  /// Listens on `FeedLocalIp` (empty: every address) and LocalPort, with a queue of 5; with UseUDP
  /// receives datagrams there. False: LastSocketErr tells why, the socket is closed.
  bool Listen(const std::string& FeedLocalIp = std::string());

  /// Takes over a connection announced by ConnectionRequest(RequestID) of a listening object. What
  /// this object held is closed. A failure sets LastSocketErr only.
  void Accept(std::int32_t RequestID);

  /// Sends everything, blocking but keeping the loop alive for 60 seconds at most. Text and bytes
  /// go out as they are (text up to its NUL when it comes as a pointer), a char or std::uint8_t as
  /// one byte, any other number as decimal text. What was queued before goes out first, within the
  /// same 60 seconds. The data must stay valid until the call returns. Returns 0, or the error
  /// number: 9999 cancelled, 10002 not all taken within 60 seconds, 10036 a call of this object is
  /// running, 10057 there is no socket, 10058 after DisconnectWhenSent, else the system's.
  std::int32_t SendData(std::string_view Data);
  std::int32_t SendData(const char* Data) { return SendData(TextAt(Data)); }
  std::int32_t SendData(std::span<const std::uint8_t> Data);
  std::int32_t SendData(std::uint8_t Data) { return SendData(std::span(&Data, 1)); }
  std::int32_t SendData(char Data) { return SendData(std::string_view(&Data, 1)); }
  std::int32_t SendData(std::int32_t Data) { return SendData(DecimalText::Of(Data).View()); }
  std::int32_t SendData(double Data) { return SendData(DecimalText::Of(Data).View()); }
  template <WideInteger T>
  std::int32_t SendData(T Data) {
    return SendData(DecimalText::Of(Data).View());
  }
  template <ConvertsToData T>
  std::int32_t SendData(const T& Data) {
    return SendData(DataOf(Data));
  }

  /// Takes a copy of the data, which goes out in the order of the calls as the system has room for
  /// it, and returns at once; SendComplete tells, never inside this call, that nothing is queued
  /// any more. The same kinds of data as SendData. While connecting it is kept until the
  /// connection is open, during a prolog until the tunnel is. Returns 0, or the error number and
  /// nothing is taken: 10045 a listening or datagram socket, 10055 more than SendBufferLimit with
  /// what is queued already, or no memory, 10057 there is no socket, 10058 after
  /// DisconnectWhenSent, else the system's.
  ///
  /// The queue is dropped when the socket is closed or the connection breaks. In the second case
  /// LastSocketErr is the number, and Closed comes; if it has been raised already (the peer ended
  /// its own sending before), SendComplete instead, and further sends fail.
  std::int32_t QueueData(std::string_view Data);
  std::int32_t QueueData(const char* Data) { return QueueData(TextAt(Data)); }
  std::int32_t QueueData(std::span<const std::uint8_t> Data);
  std::int32_t QueueData(std::uint8_t Data) { return QueueData(std::span(&Data, 1)); }
  std::int32_t QueueData(char Data) { return QueueData(std::string_view(&Data, 1)); }
  std::int32_t QueueData(std::int32_t Data) { return QueueData(DecimalText::Of(Data).View()); }
  std::int32_t QueueData(double Data) { return QueueData(DecimalText::Of(Data).View()); }
  template <WideInteger T>
  std::int32_t QueueData(T Data) {
    return QueueData(DecimalText::Of(Data).View());
  }
  template <ConvertsToData T>
  std::int32_t QueueData(const T& Data) {
    return QueueData(DataOf(Data));
  }

  /// Closes the socket at once, drops what is queued, and clears handle, addresses and ports. No
  /// event is raised.
  void Disconnect();

  /// The same once everything queued, and a SendData that is running, has been handed to the
  /// system: at once when there is nothing, else SendComplete tells it with SocketHandle 0. Until
  /// then events go on and nothing more may be sent. A peer that does not read holds this up until
  /// it goes or Disconnect is called; when the connection breaks, the socket is closed too, and
  /// the event is the one that QueueData names.
  void DisconnectWhenSent();

  /// Takes the object out of the registry: no notification reaches it any more.
  void RemoveSocket();

  /// Ends every blocking call of this object, and every send and wait in progress on sockets of the
  /// same thread, with 9999. Any thread, signal-safe.
  void Kill();

  /// Ends the blocking call of this object with 9999 and leaves other objects alone. Any thread,
  /// signal-safe.
  void StopWaiting();

  /// The text of LastSocketErr.
  std::string LastSocketErrMsg() const;

  /// Opens a tunnel to Host:Port over this socket, which is connected to a SOCKS 4 proxy; with
  /// ProxyUseRemoteDNS the proxy resolves the name (4a). On failure the socket is closed and
  /// LastErr is 9001 (refused), 9999, 10002 (no reply within SocksTimeout), 10022 (an argument that
  /// cannot be expressed), the lookup's or the system's number; on success LastErr is left as it
  /// was.
  bool Sock4Prolog(const std::string& Host, std::int32_t Port, const std::string& ProxyUserName,
                   bool ProxyUseRemoteDNS, std::int32_t& LastErr);

  /// The same over a SOCKS 5 proxy (RFC 1928), with UseAuth offering user/password (RFC 1929) too.
  /// Further failures: 9002 (user or password refused), 9003 (no method accepted).
  bool Socks5Prolog(bool ProxyUseRemoteDNS, bool UseAuth, const std::string& HostName,
                    std::int32_t Port, const std::string& ProxyUserName,
                    const std::string& ProxyPassword, std::int32_t& LastErr);

  /// Turns the open connection into a protected one: runs the handshake as a client that wants
  /// `Host`, a name or an address, to prove itself. Blocks, keeping the loop alive, for SocksTimeout
  /// seconds at most in all. On success everything else of this class is plaintext again: what is
  /// sent or was queued before goes out protected, DataArrival brings what was decrypted. Since
  /// nothing may have arrived between the peer's last unprotected answer and the handshake, bytes
  /// that are there already fail it (10173).
  ///
  /// On failure the socket is closed, and LastSocketErr is 10043 (no provider), 9999, 10002, 10022
  /// (a host that no certificate can be for), 10045 (it is protected already), 10057 (no open
  /// connection) or one of TlsError, whose details are in LastSocketErrMsg and TlsInfo. Only 10036
  /// (a call of this object is running) leaves the socket as it was.
  ///
  /// From then on Closed with LastSocketErr left alone is the peer's own end (close_notify). An end
  /// that anybody on the way could have made sets LastSocketErr to 10054 first, damaged data to a
  /// TlsError. Disconnect and DisconnectWhenSent send the closing alert if the system takes it at
  /// once and nothing was dropped. Small blocks go out at once, as with NoDelay. SendBufferLimit
  /// counts plaintext; QueuedBytes counts what is under way protected as well, 66 KB at most.
  bool StartTls(const std::string& Host, std::shared_ptr<TlsProvider> Provider);

  /// What is known of the protection: while it lasts, after its end, and after a failed StartTls
  /// (the certificate that was refused); until the next connection. Empty without any.
  netro::TlsInfo TlsInfo() const;

  /// The address that a name resolves to, or the name of a dotted address; empty on failure, see
  /// DNSLastErr. Blocks, keeping the loop alive.
  std::string DNSLookup(const std::string& Address);
  /// All addresses of a name of the families that AddressPreference chooses, in the order in which
  /// Connect tries them (with preferIPv4 those of IPv6 only where there are no others); empty on
  /// failure, as DNSLookup. Blocks likewise.
  std::vector<std::string> DNSLookupAll(const std::string& Name);

  /// Host and address helpers. A long address is the IPv4 address in network byte order held in 32
  /// bits; 0 and -1 stand for "none".
  std::string LocalHostName() const;
  std::vector<std::string> LocalIPs() const;
  std::vector<std::string> LocalAliases() const;
  /// The name of RemoteIP; empty when it has none, see DNSLastErr.
  std::string RemoteClientName();
  /// -1 for a text that is no dotted address.
  std::int32_t IPToLongAddr(const std::string& IpAddress) const;
  /// Empty for 0 and -1.
  std::string LongAddrToIP(std::int32_t IP) const;
  /// True when `IP`, of either family, answers one ICMP echo within a second. False as well when
  /// the system allows no echo to this program.
  bool IsIPReachable(const std::string& IP);
  /// Facts about the socket layer: 1 description, 2 most sockets at once, 3 status, 4 and 5 major
  /// and minor version in use, 6 and 7 highest version; else empty.
  std::string GetSockInfo(std::int32_t What) const;

  /// The entry through which the engine delivers notifications; owners do not call it. Codes: 1
  /// data, 2 writable, 8 connection to accept, 16 connected, 32 closed, 999 failed (Data: the
  /// number as text).
  void WindowProc(std::int32_t WSAEvent, const Bytes& Data = Bytes());
  void WindowProc(std::int32_t WSAEvent, const std::string& Data);

 private:
  friend class ConnectRace;
  friend class QueueHold;
  friend class SocketModule;
  friend class SocketOwner;

  static std::string_view TextAt(const char* text) { return text != nullptr ? text : ""; }

  using ConnectTrace = std::function<void(std::string_view step, const std::string& detail)>;
  using Deadline = std::chrono::steady_clock::time_point;

  std::int32_t StartUp();
  bool Fail(std::int32_t error);
  void Changed();
  void Attach(std::int32_t handle);
  void Close();
  void RefreshAddresses();
  void RequestAgainLater(std::int32_t listener);

  bool ConnectBy(std::string host, std::int32_t port, const CancelMark& mark, Deadline deadline);
  std::int32_t StartListening(const SocketAddress& address);
  LookupAnswer Resolve(const std::string& host, AddressPreferenceEnum preference,
                       const CancelMark& mark, Deadline deadline);
  LookupAnswer LookUp(const std::string& address);
  void SetLookupResult(std::int32_t error);

  std::int32_t SendAll(std::span<const std::uint8_t> data, const CancelMark& mark,
                       Deadline deadline, QueueHold* hold = nullptr);
  std::int32_t SendInTurns(std::span<const std::uint8_t> data, const CancelMark& mark,
                           Deadline deadline, QueueHold* hold);

  std::int32_t QueueRefusal(std::size_t size) const;
  bool QueueMayGoOut() const;
  void RequestQueueTurn();
  bool SendQueued();  // true when nothing is queued, which SendComplete is to tell
  bool QueueFailed(std::int32_t error);

  bool RunProlog(SocksTarget target, bool remoteDNS, std::int32_t& lastErr);
  std::int32_t OpenTunnel(SocksTarget target, bool remoteDNS, const CancelMark& mark);
  std::int32_t PrepareTarget(SocksTarget& target, bool remoteDNS, const CancelMark& mark);
  std::int32_t RunDialogue(SocksDialogue& dialogue, const CancelMark& mark);
  std::int32_t AwaitReply(const SocksDialogue& dialogue, const CancelMark& mark,
                          std::uint32_t connection);
  std::int32_t Protect(std::string host, std::shared_ptr<TlsProvider> provider,
                       const CancelMark& mark, Deadline deadline);
  std::int32_t TlsRefusal(const TlsProvider* provider) const;
  std::int32_t RunHandshake(TlsSession& session, const CancelMark& mark, Deadline deadline);
  std::int32_t StepHandshake(TlsSession& session, const CancelMark& mark, Deadline deadline,
                             std::size_t& used);
  void BeginProtected(std::unique_ptr<TlsSession> session);
  void EndProtected();
  std::ptrdiff_t Transmit(std::span<const std::uint8_t> data, std::int32_t& error);
  std::size_t UnsentBytes() const;
  bool ProtectedUnsent() const;
  void DeliverEarly();
  void PeerClosed(std::int32_t error);
  void RaiseDataArrival(const Bytes& data);
  void RaiseConnectionRequest();
  void RaiseError(const std::string& number);

  std::shared_ptr<SocketModule> module_;
  std::shared_ptr<CallState> call_;
  std::shared_ptr<CallState> owner_;  // of the call that opened the connection for another object
  std::unique_ptr<SendQueue> queue_;
  std::unique_ptr<ConnectRace> race_;  // while connecting
  const ConnectTrace* trace_ = nullptr;
  std::shared_ptr<TlsStream> tls_;     // of a protected connection, until the next one
  QueueHold* hold_ = nullptr;          // the one on the stack
  bool closeWhenSent_ = false;         // DisconnectWhenSent was called
  SocketClsEvents* events_ = nullptr;
  std::int32_t startUps_ = 0;     // that this object has counted
  std::uint32_t connection_ = 0;  // serial of the connection, to recognise a change during a call
  std::uint32_t writes_ = 0;      // notifications that it can be written
  std::size_t sendLeft_ = 0;      // of a SendData, as far as the system has not taken it
  std::int32_t closeError_ = 0;   // of the close notification: 0 for an orderly end
  bool datagrams_ = false;        // what Listen has made, whatever UseUDP says since
  bool draining_ = false;         // its read loop pumps; a read loop inside that does not
  bool prologInProgress_ = false;
  bool closeHeld_ = false;  // the peer closed during the prolog or behind early bytes
  Bytes prologReply_;       // bytes received during the prolog
  Bytes early_;             // bytes behind the last reply: they belong to the tunnel

  std::int32_t socketHandle_ = 0;
  SockType state_ = sockClosed;
  std::string localIP_;
  std::int32_t localPort_ = 0;
  std::string remoteIP_;
  std::int32_t remotePort_ = 0;
  std::int32_t lastSocketErr_ = 0;
  std::int32_t socksTimeout_ = 30;
  bool useUDP_ = false;
  bool reuseAddr_ = false;
  bool allowBroadcast_ = false;
  bool enableBroadcast_ = false;
  bool closedByClient_ = false;
  bool socketIsBusy_ = false;
  bool noDelay_ = false;
  std::size_t sendBufferLimit_ = 1024 * 1024;
  void* pageFactory_ = nullptr;
  std::int32_t dnsLastErr_ = 0;
  std::string dnsLastErrMsg_;
  std::optional<std::string> dnsURL_;  // none: the default list
  AddressPreferenceEnum preference_ = preferIPv4;
};

}  // namespace netro
