// The options of "netro get".

#include "get/GetOptions.h"

#include <CLI/CLI.hpp>

#include "terminal/Command.h"

namespace netro::tool {
namespace {

constexpr const char* kExamples = R"(
Examples:
  netro get https://example.com/
  netro get -o page.html http://example.com/
  netro get -C -o image.iso --retry 5 https://example.com/image.iso
  netro get --user alice https://host/private/
  netro get --data 'a=1&b=2' -H 'Content-Type: application/x-www-form-urlencoded' http://host/
  netro get -F title=Holiday -F 'photo=@sea.jpg;type=image/jpeg' https://host/upload
  netro get --proxy socks5h://127.0.0.1:1080 http://example.com/
  netro get --output-dir pages http://example.com/a.html http://example.com/b.html

The body goes to standard output as it came; to a terminal only when it is text, with control
characters made visible. An answer of 400 and above is printed as well, with exit status 1, but saved
to no file. A file is written under another name and takes its own when it is whole.

Redirects are followed, 10 at most. Credentials, cookies and header lines like Authorization stay
with the host that they were given for.

Several URLs are fetched with the same options, --parallel at once. Their bodies are printed one
after the other, in the order of the URLs. With --output-dir a second a.html becomes a.html.1. Exit
status 0 when all were fetched.

--json prints one object: url, final_url, ok, status, reason, headers (list of name and value),
content_type, header_length, body_length, received_bytes, seconds, attempts, timeout, redirects (list
of status and url), tls (null, or protocol, cipher, subject, issuer, names, days_left, resumed), timeline
(list of ms, what, detail), error (number and text), and the body: "file" when it was saved, else
"body" when it is UTF-8, else "body_base64". For several URLs it prints a list of such objects, one for
each URL, in their order.)";

void DeclareOutput(CLI::App& options, GetOptions& values) {
  constexpr const char* kGroup = "Output";
  const auto flag = [&options](const char* name, bool& value, const char* help) {
    options.add_flag(name, value, help)->group(kGroup);
  };
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
  flag("-C,--continue", values.resume,
       "Keep what came of a file whose transfer broke off, as FILE.part,\n"
       "and go on there the next time, unless it has changed since");
  flag("-f,--fail", values.fail, "Print no body of an answer of 400 and above");
  flag("-i,--include", values.include, "Print the header before the body");
  flag("--keep-chunks", values.keepChunks, "Keep the size lines of a chunked body");
  flag("-v,--verbose", values.verbose,
       "Tell on standard error what happens and when, with the header of\n"
       "each answer; passwords, cookies and tokens are left out");
  flag("--json", values.json, "Print one JSON object that holds everything");
}

void Check(const GetOptions& options) {
  const bool toFile = !options.output.empty() || !options.outputFolder.empty();
  if (options.resume && !toFile) throw UsageError("--continue needs --output or --output-dir");
  if (options.request.upload == "-" && options.urls.size() > 1) {
    throw UsageError("--upload-file: standard input can be sent to one URL only");
  }
}

}  // namespace

void DeclareGetOptions(CLI::App& options, GetOptions& values) {
  options
      .add_option("URL", values.urls, "[http[s]://][USER[:PASSWORD]@]HOST[:PORT][/PATH][?QUERY]")
      ->required();
  DeclareRequest(options, values.request);
  DeclareLogin(options, values.login);
  DeclareTls(options, values.tls, "TLS (https)");
  DeclareWay(options, values.way);
  DeclareOutput(options, values);
  options.footer(kExamples);
}

GetRequest ReadGetRequest(const GetOptions& options) {
  Check(options);
  GetRequest request;
  request.way = ReadWay(options.way);
  request.request = ReadRequest(options.request);
  if (options.way.retries > 0 && !request.request.CanRepeat()) {
    throw UsageError("--retry: standard input can be sent only once");
  }
  request.tls = ReadTls(options.tls, {"http/1.1"});
  request.logins = ReadLogins(options.login);  // last: it may ask
  return request;
}

}  // namespace netro::tool
