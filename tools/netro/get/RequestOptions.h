// What "netro get" asks for: method, header lines and body. Thread: any one.
#pragma once

#include <netro/HTTPCls.h>

#include <memory>
#include <string>
#include <utility>
#include <vector>

namespace CLI {
class App;
}

namespace netro::tool {

/// The options as they were typed.
struct RequestOptions {
  std::string method;
  bool head = false;
  std::string data;
  bool hasData = false;
  std::string dataFile;
  std::vector<std::string> form;
  std::string upload;
  std::vector<std::string> headers;
  std::string token = "HTTP/1.1";
  bool compressed = false;
};

void DeclareRequest(CLI::App& options, RequestOptions& values);

/// One "-F".
struct FormPart {
  std::string name;
  std::string value;  // of a field
  std::string file;   // else
  std::string type;
  std::string fileName;
};

/// The same as the library takes it.
struct Request {
  std::string method;
  std::string data;
  std::string upload;  // a file; "-" is standard input
  std::vector<FormPart> form;
  std::vector<std::pair<std::string, std::string>> headers;
  std::string token;
  std::shared_ptr<CodingProvider> codings;

  /// False when the body is gone once it has been sent.
  bool CanRepeat() const { return upload != "-"; }
};

/// Reads --data-file too. Throws UsageError.
Request ReadRequest(const RequestOptions& options);

void Apply(HTTPCls& http, const Request& request);

}  // namespace netro::tool
