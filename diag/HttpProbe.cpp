#include "diag/HttpProbe.h"

#include <string_view>
#include <utility>

#include "platform/ErrorNumbers.h"
#include "socket/OpenConnection.h"
#include "web/HttpHead.h"
#include "web/HttpRequest.h"

namespace netro {
namespace {

constexpr std::size_t kLongestLine = 8192;

std::string ComposeRequest(const Url& url) {
  HttpRequest request;
  request.method = "GET";
  request.url = url;
  request.token = "HTTP/1.1";
  if (url.hasUserInfo) request.server = HttpCredentials{url.user, url.password, {}};
  request.headers = {{"Connection", "close"}};
  return request.ComposeHead();
}

}  // namespace

HttpProbe::HttpProbe(const Url& url, Ended ended)
    : port_(url.port), request_(ComposeRequest(url)), ended_(std::move(ended)) {
  socket_.Events(this);
}

std::int32_t HttpProbe::Begin(const std::string& ip) {
  return socket_.Connect(ip, port_) ? 0 : socket_.LastSocketErr();
}

void HttpProbe::Connect() {
  const std::int32_t error = SocketOwner::SendAtOnce(socket_, request_);
  if (error != 0) End(error);
}

void HttpProbe::DataArrival(const Bytes& BinData, const std::string& /*RemoteHostIP*/) {
  line_.append(BinData.begin(), BinData.end());
  if (CutLine()) return End(0);
  if (line_.size() >= kLongestLine) End(kErrMessageTooLong);
}

// False while the status line is not complete. Interim answers before it are thrown away (RFC 9110,
// section 15.2).
bool HttpProbe::CutLine() {
  for (;;) {
    const std::size_t end = line_.find('\n');
    if (end == std::string::npos) return false;
    const std::int32_t status = ParseStatusLine(std::string_view(line_).substr(0, end)).code;
    if (status < 100 || status > 199) {
      line_.resize(end);
      if (line_.ends_with('\r')) line_.pop_back();
      return true;
    }
    const std::size_t headerEnd = line_.find("\n\r\n");
    if (headerEnd == std::string::npos) return false;
    line_.erase(0, headerEnd + 3);
  }
}

void HttpProbe::Closed() { End(kErrConnectionReset); }

void HttpProbe::Error(std::int32_t Error, const std::string& /*Description*/) { End(Error); }

void HttpProbe::End(std::int32_t error) {
  if (!ended_) return;
  socket_.Events(nullptr);
  socket_.Disconnect();
  const Ended ended = std::exchange(ended_, nullptr);
  const std::string line = std::move(line_);
  ended(error, line);
}

}  // namespace netro
