// The options of "netro get". Thread: the main one.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "get/LoginOptions.h"
#include "get/RequestOptions.h"
#include "get/WayOptions.h"
#include "terminal/TlsOptions.h"

namespace CLI {
class App;
}

namespace netro::tool {

/// The options as they were typed.
struct GetOptions {
  std::vector<std::string> urls;
  RequestOptions request;
  LoginOptions login;
  WayOptions way;
  TlsOptions tls;
  std::string output;
  std::string outputFolder;
  bool resume = false;
  bool fail = false;
  bool include = false;
  bool keepChunks = false;
  bool verbose = false;
  bool json = false;
};

void DeclareGetOptions(CLI::App& options, GetOptions& values);

/// The options as the library takes them, which are the same for all URLs.
struct GetRequest {
  Request request;
  Logins logins;
  Way way;
  std::shared_ptr<TlsProvider> tls;
};

/// Reads the files that the options name. Throws UsageError.
GetRequest ReadGetRequest(const GetOptions& options);

}  // namespace netro::tool
