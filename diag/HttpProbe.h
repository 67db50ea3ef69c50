// One HTTP request that only asks whether the server is well: GET, and the status line of the
// answer (RFC 9112). Does not wait; lives on its loop's thread.
#pragma once

#include <netro/SocketCls.h>

#include <cstdint>
#include <functional>
#include <string>

#include "support/Url.h"

namespace netro {

class HttpProbe final : private SocketClsEvents {
 public:
  /// Is called once, from the loop: the error number, and for 0 the status line. May delete the
  /// probe.
  using Ended = std::function<void(std::int32_t error, const std::string& statusLine)>;

  HttpProbe(const Url& url, Ended ended);

  /// Begins with the host's address. Returns the error number; Ended is not called after one.
  std::int32_t Begin(const std::string& ip);

 private:
  void Connect() override;
  void DataArrival(const Bytes& BinData, const std::string& RemoteHostIP) override;
  void Closed() override;
  void Error(std::int32_t Error, const std::string& Description) override;
  bool CutLine();
  void End(std::int32_t error);

  SocketCls socket_;
  const std::int32_t port_;
  const std::string request_;
  std::string line_;
  Ended ended_;
};

}  // namespace netro
