// What the HTTP tests share: servers of the loopback, and queries that tell whether time ran out.
#pragma once

#include <netro/HTTPCls.h>

#include "TestKit.h"

namespace netro {

inline std::string LoopbackUrl(int port) {
  return "http://127.0.0.1:" + std::to_string(port) + "/";
}

struct HttpClient : HTTPCls {
  explicit HttpClient(const std::string& url) { URL(url); }
};

/// What came: the body of an answer, or why there is none.
inline std::string AskBody(HTTPCls& http) {
  bool timeout = false;
  const std::string answer = http.HTTPQuery(timeout);
  return http.LastErr() == 0 ? answer.substr(static_cast<std::size_t>(http.HeaderLen()) + 4)
                             : answer;
}

/// The proxy is at a port of the loopback.
inline void UseProxy(HTTPCls& http, ProxyTypeEnum type, int port) {
  http.ProxyType(type);
  http.ProxyURL("127.0.0.1");
  http.ProxyPort(port);
}

/// A query, which must set its flag to what is expected. The object may be deleted meanwhile.
inline std::string Query(HTTPCls& http, bool timedOut = false) {
  bool timeout = !timedOut;
  const std::string text = http.HTTPQuery(timeout);
  EXPECT_EQ(timeout, timedOut) << text;
  return text;
}

}  // namespace netro
