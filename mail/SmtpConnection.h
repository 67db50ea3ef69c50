// The connection of a session: sends commands and notes what comes. The socket's events only note:
// bytes, the end of the connection, or that it could not be opened. Lives on the session's stack
// and touches nothing that an event may delete. Thread: the session's.
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
  SmtpConnection(const CancelMark& mark, std::string& received,
                 std::function<void(std::string_view)> arrived);

  /// Connects to the server, or to the plan's proxy. Failure tells whether the network refused.
  std::int32_t Open(const ConnectionPlan& plan);
  /// Lets the proxy connect to the server.
  std::int32_t OpenTunnel(const ConnectionPlan& plan);
  void Close();

  /// A reply will be awaited: forgets what has arrived.
  void BeginReply() { reply_.Begin(); }
  /// 0, 9999, 10002 or the system's number. 0 as well when the server turns out to be gone: what
  /// it has replied before is still to come.
  std::int32_t Send(std::string_view bytes);
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

  const CancelMark& mark_;
  SmtpReply reply_;
  const std::function<void(std::string_view)> arrived_;
  SocketCls socket_;
  bool listening_ = false;  // what arrives is the server's
  bool closed_ = false;
  bool reset_ = false;  // as sending found out
  std::int32_t error_ = 0;
};

}  // namespace netro
