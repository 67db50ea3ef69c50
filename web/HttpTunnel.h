// Asks an HTTP proxy, to which a connection is open, for a tunnel to a host (RFC 9110, section
// 9.3.6), and takes its answer in. The socket's events come here meanwhile.
#pragma once

#include <netro/SocketCls.h>

#include <cstdint>
#include <memory>
#include <span>
#include <string>

#include "platform/Clock.h"
#include "socket/Wait.h"
#include "web/HttpAnswer.h"

namespace netro {

class HttpTunnel final : private SocketClsEvents, private HttpBodySink {
 public:
  HttpTunnel(SocketCls& socket, const CancelMark& mark);
  ~HttpTunnel();
  HttpTunnel(const HttpTunnel&) = delete;
  HttpTunnel& operator=(const HttpTunnel&) = delete;

  /// Sends the request and waits for the header of the answer. Returns 0 when the tunnel is open;
  /// 10061 when the proxy refused it, which Head tells more of; 10173 when something stood behind
  /// the answer: whatever the host is to say first comes protected, so this was somebody else. Else
  /// 9999, 10002, what is wrong with the answer (10040, 10042, 10054), or the socket's number. The
  /// socket may be gone after 9999.
  std::int32_t Ask(const std::string& request, TimePoint deadline);

  /// The answer's header, as far as one came.
  HttpHead Head() const { return answer_.Head(); }
  const HttpStatus& Status() const { return answer_.Status(); }
  const std::string& ErrorText() const { return answer_.ErrorText(); }

 private:
  std::int32_t Judge() const;

  void DataArrival(const Bytes& block, const std::string&) override;
  void Closed() override;
  void BeginBody() override {}
  bool WriteBody(std::span<const std::uint8_t>) override { return true; }

  SocketCls& socket_;
  SocketClsEvents* const before_;
  const std::shared_ptr<CallState> call_;
  const CancelMark& mark_;
  HttpAnswer answer_;
  bool closed_ = false;
};

}  // namespace netro
