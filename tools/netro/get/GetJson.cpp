// The JSON object of "netro get".

#include "get/GetJson.h"

#include <strings.h>

#include <cmath>
#include <cstdint>
#include <string>

#include "get/BodyFile.h"
#include "get/UrlText.h"
#include "terminal/Encoding.h"

namespace netro::tool {
namespace {

using Json = nlohmann::ordered_json;

void AddBody(Json& object, const Fetch& fetch) {
  if (!fetch.file.empty() && fetch.result.IsGood()) {
    SaveBody(fetch.file, fetch.result);
    object["file"] = fetch.file;
    return;
  }
  const std::string body = WholeBody(fetch.result);
  if (IsUtf8(body)) {
    object["body"] = body;
  } else {
    object["body_base64"] = Base64(body);
  }
}

Json TlsOf(const HttpResult& result) {
  const TlsInfo& tls = result.tls;
  if (tls.protocol.empty()) return nullptr;
  return {{"protocol", tls.protocol}, {"cipher", tls.cipher},     {"subject", tls.subject},
          {"issuer", tls.issuer},     {"names", Json(tls.names)}, {"days_left", tls.daysLeft},
          {"resumed", tls.resumed},   {"alpn", tls.alpn}};
}

// Each moment of one has "301 http://..." for its detail.
Json RedirectsOf(const HttpResult& result) {
  Json redirects = Json::array();
  for (const HTTPMoment& moment : result.timeline) {
    if (moment.What != "redirect") continue;
    const std::size_t blank = moment.Detail.find(' ');
    redirects.push_back({{"status", std::stoi(moment.Detail.substr(0, blank))},
                         {"url", moment.Detail.substr(blank + 1)}});
  }
  return redirects;
}

Json TimelineOf(const HttpResult& result) {
  Json timeline = Json::array();
  for (const HTTPMoment& moment : result.timeline) {
    timeline.push_back({{"ms", std::round(moment.Milliseconds * 1000) / 1000},
                        {"what", std::string(moment.What)},
                        {"detail", moment.Detail}});
  }
  return timeline;
}

}  // namespace

Json JsonOf(const Fetch& fetch, bool hasRefusals) {
  const HttpResult& result = fetch.result;
  Json object = {
      {"url", WithoutCredentials(fetch.url)},
      {"final_url", result.finalUrl},
      {"ok", result.IsGood()},
      {"status", result.status},
      {"reason", result.reason},
      {"headers", Json::array()},
      {"content_type", result.contentType},
      {"header_length", result.header.size()},
      {"body_length", static_cast<std::int64_t>(result.bodyLength)},
      {"received_bytes", static_cast<std::int64_t>(result.receivedBytes)},
      {"seconds", result.seconds},
      {"attempts", fetch.attempts},
      {"timeout", result.timedOut},
      {"redirects", RedirectsOf(result)},
      {"tls", TlsOf(result)},
      {"timeline", TimelineOf(result)},
      {"error", {{"number", result.errorNumber}, {"text", result.errorText}}},
  };
  for (const auto& [name, value] : FieldsOf(result.header)) {
    const bool isUrl = ::strcasecmp(name.c_str(), "Location") == 0;
    object["headers"].push_back(
        {{"name", name}, {"value", isUrl ? WithoutCredentials(value) : value}});
  }
  if (result.IsGood() || (result.IsAnswer() && hasRefusals)) {
    AddBody(object, fetch);
  } else {
    DiscardBody(result);
  }
  return object;
}

}  // namespace netro::tool
