// The connection of a session: sends commands and notes what comes. The socket's events only note:
// bytes, the end of the connection, or that it could not be opened. Belongs to a session and
// touches nothing that an event may delete. Thread: the session's.
#pragma once

#include <netro/SocketCls.h>

#include <cstdint>
#include <functional>
#include <string>
#include <string_view>

#include "mail/SmtpReply.h"
#include "socket/OpenConnection.h"

namespace netro {

class SmtpConnection final : private SocketClsEvents {
 public:
  /// `received` gets what arrives since the last command, `arrived` each block.
  SmtpConnection(std::string& received, std::function<void(std::string_view)> arrived);

  /// The call that uses the connection from now on.
  void Use(const CancelMark& mark) { mark_ = &mark; }

  /// Connects to the server, or to the plan's proxy. Failure tells whether the network refused.
  std::int32_t Open(const ConnectionPlan& plan);
  /// Lets the proxy connect to the server.
  std::int32_t OpenTunnel(const ConnectionPlan& plan);
  /// Protects the connection. 0 or the error number, whose text is TlsErrorText: unprotected bytes
  /// behind the last reply are tlsEarlyBytes.
  std::int32_t Protect(const std::string& host, const std::shared_ptr<TlsProvider>& provider,
                       TimePoint deadline);
  bool IsProtected() const { return protected_; }
  const std::string& TlsErrorText() const { return tlsErrorText_; }
  netro::TlsInfo TlsInfo() const { return socket_.TlsInfo(); }
  void Close();
  bool IsOpen() const { return open_ && Failure() == 0; }
  /// The address that it was connected to last.
  const std::string& Address() const { return address_; }

  /// A reply will be awaited: forgets what has arrived.
  void BeginReply() { reply_.Begin(); }
  /// The next reply to commands that were sent together.
  void NextReply() { reply_.Next(); }
  /// Replies are awaited with their last line end from now on.
  void AwaitLineEnds() { wholeLines_ = true; }
  const SmtpReply& Reply() const { return reply_; }
  /// True when what came is no SMTP; only known when line ends are awaited.
  bool IsForeign() const { return wholeLines_ && reply_.IsForeign(); }
  /// Within a minute, and not beyond the limit. 0, 9999, 10002 or the system's number. 0 as well
  /// when the server turns out to be gone: what it has replied before is still to come.
  std::int32_t Send(std::string_view bytes, TimePoint limit);
  bool IsReset() const { return reset_; }
  WaitEnd AwaitReply(TimePoint deadline);
  /// The reply code, 0 while there is none.
  std::int32_t Code() const { return reply_.Code(); }
  /// What ended the connection: 10040 too long a reply, 10054 the server closed it, or the system's
  /// number; 0 while it is open.
  std::int32_t Failure() const;

 private:
  void DataArrival(const Bytes& BinData, const std::string& RemoteHostIP) override;
  void Closed() override { closed_ = true; }
  void Error(std::int32_t Error, const std::string& /*Description*/) override { error_ = Error; }

  const CancelMark* mark_ = nullptr;
  SmtpReply reply_;
  const std::function<void(std::string_view)> arrived_;
  SocketCls socket_;
  std::string address_;
  std::string tlsErrorText_;
  bool open_ = false;
  bool protected_ = false;
  bool wholeLines_ = false;
  bool listening_ = false;  // what arrives is the server's
  bool closed_ = false;
  bool reset_ = false;  // as sending found out
  std::int32_t error_ = 0;
};

}  // namespace netro
