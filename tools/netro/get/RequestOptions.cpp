// What "netro get" asks for.

#include "get/RequestOptions.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#ifdef NETRO_HAS_CODINGS
#include <netro/SystemCodings.h>
#endif
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <string_view>

#include "get/InputBody.h"
#include "terminal/Command.h"
#include "terminal/OptionValues.h"

namespace netro::tool {
namespace {

constexpr const char* kGroup = "Request";

std::shared_ptr<CodingProvider> Codings() {
#ifdef NETRO_HAS_CODINGS
  return SystemCodings();
#else
  throw UsageError("--compressed: this netro was built without content codings");
#endif
}

void CheckReadable(const std::string& option, const std::string& file) {
  if (::access(file.c_str(), R_OK) == 0) return;
  throw UsageError(option + ": cannot read " + file + ": " + std::strerror(errno));
}

/// Takes ";name=value" off the end of `rest`; false when there is none of that name.
bool TakeAttribute(std::string& rest, std::string_view name, std::string& value) {
  const std::string begin = ";" + std::string(name) + "=";
  const std::size_t at = rest.rfind(begin);
  if (at == rest.npos || rest.find(';', at + 1) != rest.npos) return false;
  value = rest.substr(at + begin.size());
  rest.erase(at);
  return true;
}

// "name=value", "name=@file;type=image/png;filename=a.png"
FormPart ReadFormPart(const std::string& text) {
  const std::size_t equals = text.find('=');
  if (equals == 0 || equals == text.npos) {
    throw UsageError("--form: \"" + text + "\" is not of the form NAME=VALUE or NAME=@FILE");
  }
  FormPart part;
  part.name = text.substr(0, equals);
  part.value = text.substr(equals + 1);
  if (!part.value.starts_with('@')) return part;
  part.file = part.value.substr(1);
  part.value.clear();
  while (TakeAttribute(part.file, "type", part.type) ||
         TakeAttribute(part.file, "filename", part.fileName)) {
  }
  CheckReadable("--form", part.file);
  return part;
}

std::string MethodOf(const RequestOptions& options) {
  const bool posts = options.hasData || !options.dataFile.empty() || !options.form.empty();
  const bool hasBody = posts || !options.upload.empty();
  std::string method = options.head ? "HEAD" : options.method;
  if (method.empty()) method = posts ? "POST" : hasBody ? "PUT" : "GET";
  if (hasBody && (method == "GET" || method == "HEAD")) {
    throw UsageError("a " + method + " request has no body; leave out --request, --head or the data");
  }
  return method;
}

CLI::Option* DeclareBody(CLI::App& options, RequestOptions& values) {
  auto* data = options
                   .add_option_function<std::string>(
                       "-d,--data",
                       [&values](const std::string& text) {
                         values.data = text;
                         values.hasData = true;
                       },
                       "Send this body with POST; name its type with -H")
                   ->type_name("TEXT");
  auto* file = options
                   .add_option("--data-file", values.dataFile,
                               "Send this file with POST; - is standard input")
                   ->type_name("FILE")
                   ->excludes(data);
  auto* form =
      options
          .add_option("-F,--form", values.form,
                      "Send a form (multipart/form-data) with POST; NAME=@FILE sends a\n"
                      "file, and ;type=TYPE and ;filename=NAME may follow; may be\n"
                      "repeated")
          ->type_name("NAME=VALUE")
          ->expected(1)
          ->multi_option_policy(CLI::MultiOptionPolicy::TakeAll)
          ->excludes(data)
          ->excludes(file);
  auto* upload = options
                     .add_option("-T,--upload-file", values.upload,
                                 "Send this file with PUT; - is standard input, sent as it comes")
                     ->type_name("FILE")
                     ->excludes(data)
                     ->excludes(file)
                     ->excludes(form);
  for (CLI::Option* option : {data, file, form, upload}) option->group(kGroup);
  return upload;
}

}  // namespace

void DeclareRequest(CLI::App& options, RequestOptions& values) {
  auto* method =
      options
          .add_option("-X,--request", values.method, "GET, HEAD, POST, PUT, DELETE or any other")
          ->type_name("METHOD")
          ->group(kGroup);
  options.add_flag("-I,--head", values.head, "Ask for the header only, and print it")
      ->excludes(method)
      ->group(kGroup);
  DeclareBody(options, values);
  options.add_option("-H,--header", values.headers, "Add a header line; may be repeated")
      ->type_name("'NAME: VALUE'")
      ->expected(1)
      ->multi_option_policy(CLI::MultiOptionPolicy::TakeAll)
      ->group(kGroup);
  options.add_flag("--compressed", values.compressed, "Ask for a compressed body, and unpack it")
      ->group(kGroup);
  options.add_option("--token", values.token, "Protocol token of the request line, as HTTP/1.0")
      ->type_name("TEXT")
      ->group(kGroup);
}

Request ReadRequest(const RequestOptions& options) {
  Request request;
  request.method = MethodOf(options);
  request.data =
      options.dataFile.empty() ? options.data : ReadInput("--data-file", options.dataFile);
  request.upload = options.upload;
  if (!options.upload.empty() && options.upload != "-") {
    CheckReadable("--upload-file", options.upload);
  }
  for (const std::string& part : options.form) request.form.push_back(ReadFormPart(part));
  for (const std::string& line : options.headers) request.headers.push_back(ReadHeader(line));
  request.token = options.token;
  if (options.compressed) request.codings = Codings();
  return request;
}

void Apply(HTTPCls& http, const Request& request) {
  http.Method(request.method);
  http.PostData(request.data);
  if (request.upload == "-") {
    http.BodyFunction(ReadStandardInput);
  } else if (!request.upload.empty()) {
    http.BodyFile(request.upload);
  }
  for (const FormPart& part : request.form) {
    if (part.file.empty()) {
      http.AddFormField(part.name, part.value);
    } else {
      http.AddFormFile(part.name, part.file, part.type, part.fileName);
    }
  }
  for (const auto& [name, value] : request.headers) http.AddHeader(name, value);
  http.HTTPToken(request.token);
  http.ContentCoding(request.codings);
}

}  // namespace netro::tool
