// Splitting and encoding of the URLs that the HTTP client accepts (RFC 3986). Thread: any.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace netro {

/// The parts of a URL, without the punctuation between them.
struct Url {
  std::string protocol = "http";  // in lower case
  std::string user;               // percent-decoded
  std::string password;           // percent-decoded
  std::string host;               // letters, digits, "-", ".", "_" and bytes from 0x80 on; or
                                  // an IPv6 address without its brackets
  std::string path;               // without its leading "/", not decoded
  std::string query;              // without "?", not decoded
  std::int32_t port = 80;
  bool hasUserInfo = false;  // something stands before the "@"
  bool hasPort = false;      // the port was given
};

struct UrlResult {
  Url url;            // of use only when `error` is empty
  std::string error;  // what is wrong, for the user to read
};

/// Splits `text`. The protocol may be missing ("host:8080/path", "//host/path"), the fragment is
/// dropped. No part holds CR, LF or NUL. Port 80 is assumed whatever the protocol.
UrlResult SplitUrl(std::string_view text);

/// Percent-encodes what may not stand in a request's path or query: controls, blanks,
/// "#<>\^`{|}, the quotation mark and bytes from 0x7F on. Reserved characters and what is encoded
/// already stay, so that encoding twice equals encoding once; a "%" that begins no such triple
/// becomes "%25".
std::string UrlEncode(std::string_view text);

}  // namespace netro
