// The attempts of one Connect: the addresses of a host in their order, the next one a quarter of a
// second after the last, or at once when that has failed (RFC 8305, section 5). The first that
// opens becomes the socket's connection, the others leave no trace. On the loop's thread.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "socket/HostLookup.h"

namespace netro {

class SocketCls;

class ConnectRace {
 public:
  /// The socket has a handle of IPv4 for the first attempt that can use it. `host` is asked for
  /// further addresses when `answer` says that there may be some.
  ConnectRace(SocketCls& socket, LookupAnswer answer, std::int32_t port, std::string host,
              LookupSettings settings);
  ~ConnectRace();
  ConnectRace(const ConnectRace&) = delete;
  ConnectRace& operator=(const ConnectRace&) = delete;

  /// Begins. Returns the error number when no attempt could be made and nobody is left to ask.
  std::int32_t Start();
  /// An attempt has opened: it is the socket's connection now.
  void Won(std::int32_t handle);
  /// An attempt has failed. True while the race goes on.
  bool Lost(std::int32_t handle, std::int32_t error);

 private:
  bool GoOn();
  std::int32_t Attempt(const IpAddress& address);
  std::int32_t Connect(std::int32_t handle, const IpAddress& address);
  void TraceFailure() const;
  void SetTimer(std::int32_t milliseconds);
  void StopTimer();
  void TimeIsUp();
  bool AskForMore();
  void TakeMore(const LookupAnswer& answer);
  void Forget(std::int32_t handle);

  SocketCls& socket_;
  std::vector<IpAddress> addresses_;
  std::size_t next_ = 0;
  const std::int32_t port_;
  std::string host_;  // empty when there is nothing more to ask for
  LookupSettings settings_;
  std::vector<std::int32_t> running_;  // handles of attempts
  bool fresh_ = true;                  // the socket's handle has not been tried yet
  std::shared_ptr<CallState> call_;    // of the task that asks
  std::int32_t timer_ = 0;
  std::int32_t error_ = 0;  // of the last attempt that failed
};

}  // namespace netro
