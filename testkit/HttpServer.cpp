#include <netro/testkit/HttpServer.h>
#include <strings.h>

#include <cstdlib>
#include <utility>

namespace netro::testkit {
namespace {

constexpr char kEmptyLine[] = "\r\n\r\n";

std::string PathOf(std::string target) {
  const std::size_t scheme = target.find("://");
  if (scheme != std::string::npos) {
    const std::size_t slash = target.find('/', scheme + 3);
    target = slash == std::string::npos ? "/" : target.substr(slash);
  }
  return target.substr(0, target.find('?'));
}

bool ReadUpTo(const HttpServer::Stream& stream, std::string& bytes, const std::string& end) {
  while (bytes.find(end) == std::string::npos)
    if (!stream.read(bytes)) return false;
  return true;
}

bool ReadChunks(const HttpServer::Stream& stream, std::string& bytes, std::string& body) {
  for (;;) {
    if (!ReadUpTo(stream, bytes, "\r\n")) return false;
    const std::size_t size = std::strtoul(bytes.c_str(), nullptr, 16);
    bytes.erase(0, bytes.find("\r\n") + 2);
    while (bytes.size() < size + 2)
      if (!stream.read(bytes)) return false;
    body += bytes.substr(0, size);
    bytes.erase(0, size + 2);
    if (size == 0) return true;
  }
}

// False when the client ended the stream before the request was complete. `bytes`: what has come
// already, and what comes behind the request.
bool ReadRequest(const HttpServer::Stream& stream, std::string& bytes, HttpRequest& request) {
  while (bytes.starts_with("\r\n")) bytes.erase(0, 2);
  if (!ReadUpTo(stream, bytes, kEmptyLine)) return false;
  request.head = bytes.substr(0, bytes.find(kEmptyLine) + 2);
  bytes.erase(0, request.head.size() + 2);
  request.method = request.head.substr(0, request.head.find(' '));
  const std::size_t target = request.method.size() + 1;
  request.target = request.head.substr(target, request.head.find(' ', target) - target);
  if (request.Field("Expect") == "100-continue") stream.send("HTTP/1.1 100 Continue\r\n\r\n");
  if (request.Field("Transfer-Encoding") == "chunked") {
    return ReadChunks(stream, bytes, request.body);
  }
  const std::size_t length = std::strtoul(request.Field("Content-Length").c_str(), nullptr, 10);
  while (bytes.size() < length)
    if (!stream.read(bytes)) return false;
  request.body = bytes.substr(0, length);
  bytes.erase(0, length);
  return true;
}

}  // namespace

std::string HttpRequest::Field(const std::string& name) const {
  for (std::size_t line = head.find("\r\n"); line + 2 < head.size();
       line = head.find("\r\n", line + 2)) {
    const char* text = head.c_str() + line + 2;
    if (strncasecmp(text, name.c_str(), name.size()) != 0 || text[name.size()] != ':') continue;
    const std::size_t value = head.find_first_not_of(' ', line + 2 + name.size() + 1);
    return head.substr(value, head.find("\r\n", value) - value);
  }
  return {};
}

HttpServer::HttpServer(bool keeps)
    : keeps_(keeps),
      server_([this](Connection& connection, std::size_t number) { Serve(connection, number); }) {}

void HttpServer::On(const std::string& path, Handler handler) {
  const std::lock_guard lock(mutex_);
  handlers_[path] = std::move(handler);
}

void HttpServer::OnText(const std::string& path, const std::string& text) {
  On(path, [text](const HttpRequest& request) {
    return Answer(
        "200 OK\r\nContent-Type: text/plain\r\nContent-Length: " + std::to_string(text.size()),
        request.method == "HEAD" ? "" : text);
  });
}

std::string HttpServer::Url(const std::string& path) const {
  return "http://127.0.0.1:" + std::to_string(Port()) + path;
}

std::vector<HttpRequest> HttpServer::Requests() {
  const std::lock_guard lock(mutex_);
  return requests_;
}

std::string HttpServer::Answer(const std::string& statusAndHeader, const std::string& body) {
  return "HTTP/1.1 " + statusAndHeader + kEmptyLine + body;
}

HttpServer::Handler HttpServer::Record(const HttpRequest& request) {
  const std::lock_guard lock(mutex_);
  requests_.push_back(request);
  const auto handler = handlers_.find(PathOf(request.target));
  if (handler != handlers_.end()) return handler->second;
  return [](const HttpRequest&) {
    return Answer("404 Not Found\r\nContent-Type: text/plain\r\nContent-Length: 0", "");
  };
}

void HttpServer::ServeOn(const Stream& stream, std::size_t number) {
  std::string bytes;
  for (;;) {
    HttpRequest request;
    request.connection = number;
    if (!ReadRequest(stream, bytes, request)) return;
    const Response answer = Record(request)(request);
    if (!stream.send(answer)) return;
    const std::string& sent = answer.bytes;
    const std::string head = sent.substr(0, sent.find(kEmptyLine));
    if (!keeps_ || sent.empty() || head.find("Connection: close") != std::string::npos) return;
  }
}

void HttpServer::Serve(Connection& connection, std::size_t number) {
  ServeOn({[&](std::string& into) { return connection.Read(into); },
           [&](const Response& response) { return connection.Give(response); }},
          number);
  connection.HalfClose();
  std::string rest;
  connection.ReadToEnd(rest);
}

}  // namespace netro::testkit
