// The options of "netro get". Thread: any.
#pragma once

#include <netro/HTTPCls.h>

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include "terminal/ProxyOption.h"

namespace CLI {
class App;
}

namespace netro::tool {

/// The options as they were typed.
struct GetOptions {
  std::vector<std::string> urls;
  std::string method;
  bool head = false;
  std::string data;
  bool hasData = false;
  std::string dataFile;
  std::vector<std::string> headers;
  std::string user;
  bool noChallenge = false;
  std::string proxy;
  std::string proxyType;
  std::string output;
  std::string outputFolder;
  bool include = false;
  bool keepChunks = false;
  std::string dns;
  AddressPreferenceEnum preference = preferIPv4;
  std::int32_t timeout = 30;
  std::int32_t parallel = 8;
  std::string token = "HTTP/1.1";
  bool json = false;
};

void DeclareGetOptions(CLI::App& options, GetOptions& values);

/// The options as the library takes them, which are the same for all URLs.
struct GetRequest {
  QueryTypeEnum method = QueryGet;
  std::string body;
  std::vector<std::pair<std::string, std::string>> headers;
  std::string user;
  std::string password;
  bool answerChallenges = true;  // where there are credentials
  Proxy proxy;
  std::string dns;
  AddressPreferenceEnum preference = preferIPv4;
  std::int32_t timeout = 30;
  std::string token;
  bool keepChunks = false;
};

/// Reads --data-file too. Throws UsageError.
GetRequest ReadGetRequest(const GetOptions& options);

}  // namespace netro::tool
