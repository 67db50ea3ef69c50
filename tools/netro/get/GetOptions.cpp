// The options of "netro get".

#include "get/GetOptions.h"

#include <CLI/CLI.hpp>
#include <algorithm>

#include "terminal/Batch.h"
#include "terminal/Command.h"
#include "terminal/FamilyOptions.h"
#include "terminal/OptionValues.h"

namespace netro::tool {
namespace {

constexpr const char* kExamples = R"(
Examples:
  netro get http://example.com/
  netro get -o page.html http://example.com/
  netro get --user alice:secret http://host/private/
  netro get --data 'a=1&b=2' -H 'Content-Type: application/x-www-form-urlencoded' http://host/
  netro get --proxy socks5h://127.0.0.1:1080 http://example.com/
  netro get --output-dir pages http://example.com/a.html http://example.com/b.html

The body goes to standard output as it came; to a terminal only when it is text, with control
characters made visible. An answer of 400 and above is printed as well, with exit status 1.
Redirects are not followed.

Several URLs are fetched with the same options, --parallel at once. Their bodies are printed one
after the other, in the order of the URLs. With --output-dir a second a.html becomes a.html.1. Exit
status 0 when all were fetched.

--json prints one object: url, ok, status, reason, headers (list of name and value), content_type,
header_length, body_length, received_bytes, seconds, timeout, error (number and text), and the
body: "file" when it was saved, else "body" when it is UTF-8, else "body_base64". For several URLs it
prints a list of such objects, one for each URL, in their order.)";

void DeclareRequest(CLI::App& options, GetOptions& values) {
  constexpr const char* kGroup = "Request";
  options.add_option("URL", values.urls, "[http://][USER[:PASSWORD]@]HOST[:PORT][/PATH][?QUERY]")
      ->required();
  auto* method = options.add_option("-X,--request", values.method, "GET, HEAD or POST")
                     ->type_name("METHOD")
                     ->group(kGroup);
  options.add_flag("-I,--head", values.head, "Ask for the header only, and print it")
      ->excludes(method)
      ->group(kGroup);
  auto* data = options
                   .add_option_function<std::string>(
                       "-d,--data",
                       [&values](const std::string& text) {
                         values.data = text;
                         values.hasData = true;
                       },
                       "Send this body with POST; name its type with -H")
                   ->type_name("TEXT")
                   ->group(kGroup);
  options
      .add_option("--data-file", values.dataFile, "Send this file with POST; - is standard input")
      ->type_name("FILE")
      ->excludes(data)
      ->group(kGroup);
  options.add_option("-H,--header", values.headers, "Add a header line; may be repeated")
      ->type_name("'NAME: VALUE'")
      ->expected(1)
      ->multi_option_policy(CLI::MultiOptionPolicy::TakeAll)
      ->group(kGroup);
  options.add_option("--token", values.token, "Protocol token of the request line, as HTTP/1.0")
      ->type_name("TEXT")
      ->group(kGroup);
}

void DeclareConnection(CLI::App& options, GetOptions& values) {
  constexpr const char* kGroup = "Connection";
  auto* user = options
                   .add_option("-u,--user", values.user,
                               "Credentials for the server: sent at once as Basic, and again\n"
                               "as Basic or Digest when the server asks")
                   ->type_name("USER[:PASSWORD]")
                   ->group(kGroup);
  options
      .add_flag("--no-challenge", values.noChallenge,
                "Print a 401 answer instead of answering it; the credentials\n"
                "of the URL are still sent at once")
      ->excludes(user)
      ->group(kGroup);
  options
      .add_option("-x,--proxy", values.proxy,
                  "[SCHEME://][USER[:PASSWORD]@]HOST[:PORT]; schemes are http\n"
                  "(port 8080), socks4, socks4a, socks5, socks5h (port 1080);\n"
                  "with socks4a and socks5h the proxy looks up the name")
      ->type_name("PROXY")
      ->group(kGroup);
  options
      .add_option("--proxy-type", values.proxyType,
                  "Instead of the scheme's: basic (sends credentials at once),\n"
                  "msisa (the same), pipe (when asked), socks4, socks4a, socks5,\n"
                  "socks5-auth")
      ->type_name("TYPE")
      ->group(kGroup);
  options.add_option("--dns", values.dns, "DNS servers to ask, as host[:port],host[:port]")
      ->type_name("SERVERS")
      ->group(kGroup);
  DeclareFamilyOptions(options, values.preference, kGroup);
  DeclareParallel(options, values.parallel, "The most URLs to fetch at once");
  options
      .add_option("-t,--timeout", values.timeout,
                  "Limit of each wait (connecting, proxy, answer); 30 if not given")
      ->type_name("SECONDS")
      ->group(kGroup);
}

void DeclareOutput(CLI::App& options, GetOptions& values) {
  constexpr const char* kGroup = "Output";
  auto* file =
      options.add_option("-o,--output", values.output, "Write the body to this file, replacing it")
          ->type_name("FILE")
          ->group(kGroup);
  options
      .add_option("--output-dir", values.outputFolder,
                  "Write each body to a file in this folder, replacing it; the\n"
                  "name is the last part of the URL's path, or index.html")
      ->type_name("FOLDER")
      ->excludes(file)
      ->group(kGroup);
  options.add_flag("-i,--include", values.include, "Print the header before the body")
      ->group(kGroup);
  options.add_flag("--keep-chunks", values.keepChunks, "Keep the size lines of a chunked body")
      ->group(kGroup);
  options.add_flag("--json", values.json, "Print one JSON object that holds everything")
      ->group(kGroup);
}

QueryTypeEnum ReadMethod(const GetOptions& options) {
  const bool hasBody = options.hasData || !options.dataFile.empty();
  const std::string method = options.head ? "HEAD" : options.method;
  if (method.empty() || method == "GET") {
    if (hasBody && !method.empty()) {
      throw UsageError("a GET request has no body; leave out --request or the data");
    }
    return hasBody ? QueryPost : QueryGet;
  }
  if (method == "POST") return QueryPost;
  if (method != "HEAD") {
    throw UsageError("--request: the method is GET, HEAD or POST, not \"" + method + "\"");
  }
  if (hasBody) throw UsageError("a HEAD request has no body");
  if (!options.output.empty() || !options.outputFolder.empty()) {
    throw UsageError("the answer to a HEAD request has no body for --output");
  }
  return QueryHeader;
}

}  // namespace

void DeclareGetOptions(CLI::App& options, GetOptions& values) {
  DeclareRequest(options, values);
  DeclareConnection(options, values);
  DeclareOutput(options, values);
  options.footer(kExamples);
}

GetRequest ReadGetRequest(const GetOptions& options) {
  GetRequest request;
  if (options.timeout < 1) throw UsageError("--timeout: at least one second is needed");
  CheckParallel(options.parallel);
  request.method = ReadMethod(options);
  request.body =
      options.dataFile.empty() ? options.data : ReadInput("--data-file", options.dataFile);
  for (const std::string& line : options.headers) request.headers.push_back(ReadHeader(line));
  const std::size_t colon = std::min(options.user.find(':'), options.user.size());
  request.user = options.user.substr(0, colon);
  request.password = options.user.substr(std::min(colon + 1, options.user.size()));
  request.answerChallenges = !options.noChallenge;
  request.proxy = ReadProxy(options.proxy, options.proxyType);
  request.dns = options.dns;
  request.preference = options.preference;
  request.timeout = options.timeout;
  request.token = options.token;
  request.keepChunks = options.keepChunks;
  return request;
}

}  // namespace netro::tool
