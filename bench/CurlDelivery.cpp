// Delivering with libcurl's easy interface, one handle for all sessions; several at the same time
// with its multi interface. Otherwise it would keep the connection and send the next message in the
// same session.

#include "bench/Delivery.h"

#ifdef NETRO_HAVE_CURL

#include <curl/curl.h>

#include <algorithm>
#include <string_view>
#include <vector>

#include "bench/CurlMulti.h"

namespace netro::bench {
namespace {

std::size_t Take(char* to, std::size_t size, std::size_t count, void* rest) {
  auto& message = *static_cast<std::string_view*>(rest);
  const std::size_t taken = message.copy(to, size * count);
  message.remove_prefix(taken);
  return taken;
}

void Prepare(CURL* handle, const Delivery& delivery, const curl_slist* recipients) {
  const std::string url = "smtp://127.0.0.1:" + std::to_string(delivery.port) + "/x.test";
  curl_easy_setopt(handle, CURLOPT_URL, url.c_str());
  curl_easy_setopt(handle, CURLOPT_PROXY, "");
  curl_easy_setopt(handle, CURLOPT_NOSIGNAL, 1L);
  curl_easy_setopt(handle, CURLOPT_MAIL_FROM, "<a@x.test>");
  curl_easy_setopt(handle, CURLOPT_MAIL_RCPT, recipients);
  curl_easy_setopt(handle, CURLOPT_UPLOAD, 1L);
  curl_easy_setopt(handle, CURLOPT_READFUNCTION, Take);
}

void UseNewSession(CURL* handle) {
  curl_easy_setopt(handle, CURLOPT_FRESH_CONNECT, 1L);
  curl_easy_setopt(handle, CURLOPT_FORBID_REUSE, 1L);
}

std::string DeliverAll(const Delivery& delivery, bool keep, Stopwatch& watch) {
  curl_global_init(CURL_GLOBAL_DEFAULT);
  CURL* handle = curl_easy_init();
  curl_slist* recipients = curl_slist_append(nullptr, "<b@x.test>");
  Prepare(handle, delivery, recipients);
  if (!keep) {
    UseNewSession(handle);
  }
  watch.Start();
  for (int i = 0; i < delivery.repetitions; ++i) {
    std::string_view rest = delivery.message;
    curl_easy_setopt(handle, CURLOPT_READDATA, &rest);
    const CURLcode result = curl_easy_perform(handle);
    if (result != CURLE_OK) {
      return curl_easy_strerror(result);
    }
  }
  watch.Stop();
  curl_easy_cleanup(handle);
  curl_slist_free_all(recipients);
  return {};
}

}  // namespace

std::string CurlDeliver(const Delivery& delivery, Stopwatch& watch) {
  return DeliverAll(delivery, false, watch);
}

std::string CurlDeliverKept(const Delivery& delivery, Stopwatch& watch) {
  return DeliverAll(delivery, true, watch);
}

std::string CurlDeliverMany(const Delivery& delivery, Stopwatch& watch) {
  curl_global_init(CURL_GLOBAL_DEFAULT);
  curl_slist* recipients = curl_slist_append(nullptr, "<b@x.test>");
  watch.Start();
  std::vector<std::string_view> rests(static_cast<std::size_t>(delivery.inFlight),
                                      delivery.message);
  std::vector<CURL*> handles;
  for (std::string_view& rest : rests) {
    CURL* handle = handles.emplace_back(curl_easy_init());
    Prepare(handle, delivery, recipients);
    UseNewSession(handle);
    curl_easy_setopt(handle, CURLOPT_READDATA, &rest);
    curl_easy_setopt(handle, CURLOPT_PRIVATE, &rest);
  }
  std::string error = CurlMulti(handles, delivery.repetitions, [&delivery](CURL* handle) {
    std::string_view* rest = nullptr;
    curl_easy_getinfo(handle, CURLINFO_PRIVATE, &rest);
    *rest = delivery.message;
    return std::string();
  });
  watch.Stop();
  for (CURL* handle : handles) {
    curl_easy_cleanup(handle);
  }
  curl_slist_free_all(recipients);
  return error;
}

}  // namespace netro::bench

#endif
