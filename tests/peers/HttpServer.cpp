#include "HttpServer.h"

#include <strings.h>

#include <cstdlib>
#include <utility>

namespace netro::peers {
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

// False when the client ended the stream before the request was complete.
bool ReadRequest(Connection& connection, HttpRequest& request) {
  std::string bytes;
  std::size_t end;
  while ((end = bytes.find(kEmptyLine)) == std::string::npos)
    if (!connection.Read(bytes)) return false;
  request.head = bytes.substr(0, end + 2);
  request.method = bytes.substr(0, bytes.find(' '));
  const std::size_t target = request.method.size() + 1;
  request.target = bytes.substr(target, bytes.find(' ', target) - target);
  const std::size_t length = std::strtoul(request.Field("Content-Length").c_str(), nullptr, 10);
  request.body = bytes.substr(end + 4);
  while (request.body.size() < length)
    if (!connection.Read(request.body)) return false;
  request.body.resize(length);
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

HttpServer::HttpServer()
    : server_([this](Connection& connection, std::size_t) { Serve(connection); }) {}

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

void HttpServer::Serve(Connection& connection) {
  HttpRequest request;
  if (!ReadRequest(connection, request)) return;
  connection.Send(Record(request)(request));
  connection.HalfClose();
  std::string rest;
  connection.ReadToEnd(rest);
}

}  // namespace netro::peers
