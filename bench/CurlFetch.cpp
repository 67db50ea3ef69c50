// Fetching with libcurl's easy interface, one handle for all repetitions, a new connection for
// each; several at the same time with its multi interface.

#include "bench/Fetch.h"

#ifdef NETRO_HAVE_CURL

#include <curl/curl.h>

#include <cstdio>
#include <memory>
#include <vector>

#include "bench/CurlMulti.h"

namespace netro::bench {
namespace {

std::size_t Append(char* data, std::size_t size, std::size_t count, void* body) {
  static_cast<std::string*>(body)->append(data, size * count);
  return size * count;
}

void Prepare(CURL* handle, const Fetch& fetch) {
  curl_easy_setopt(handle, CURLOPT_URL, fetch.url.c_str());
  curl_easy_setopt(handle, CURLOPT_PROXY, "");
  curl_easy_setopt(handle, CURLOPT_NOSIGNAL, 1L);
  curl_easy_setopt(handle, CURLOPT_FRESH_CONNECT, fetch.keepAlive ? 0L : 1L);
  curl_easy_setopt(handle, CURLOPT_FORBID_REUSE, fetch.keepAlive ? 0L : 1L);
  if (!fetch.trustFile.empty()) {
    curl_easy_setopt(handle, CURLOPT_CAINFO, fetch.trustFile.c_str());
    curl_easy_setopt(handle, CURLOPT_SSL_SESSIONID_CACHE, fetch.resumes ? 1L : 0L);
    curl_easy_setopt(handle, CURLOPT_HTTP_VERSION, CURL_HTTP_VERSION_1_1);
  }
  curl_easy_setopt(handle, CURLOPT_TIMEOUT, static_cast<long>(fetch.timeoutSeconds));
}

/// libcurl writes to the FILE itself when no function is set.
CURLcode IntoFile(CURL* handle, const std::string& path) {
  const std::unique_ptr<FILE, int (*)(FILE*)> file(std::fopen(path.c_str(), "wb"), std::fclose);
  curl_easy_setopt(handle, CURLOPT_WRITEDATA, file.get());
  return file ? curl_easy_perform(handle) : CURLE_WRITE_ERROR;
}

CURLcode IntoMemory(CURL* handle) {
  std::string body;
  curl_easy_setopt(handle, CURLOPT_WRITEFUNCTION, Append);
  curl_easy_setopt(handle, CURLOPT_WRITEDATA, &body);
  return curl_easy_perform(handle);
}

std::string CheckSize(CURL* handle, const Fetch& fetch) {
  curl_off_t received = 0;
  curl_easy_getinfo(handle, CURLINFO_SIZE_DOWNLOAD_T, &received);
  return received == static_cast<curl_off_t>(fetch.bodyBytes)
             ? ""
             : "a body of " + std::to_string(received) + " bytes";
}

}  // namespace

std::string CurlFetch(const Fetch& fetch, Stopwatch& watch) {
  curl_global_init(CURL_GLOBAL_DEFAULT);
  CURL* handle = curl_easy_init();
  Prepare(handle, fetch);
  watch.Start();
  for (int i = 0; i < fetch.repetitions; ++i) {
    const CURLcode result = fetch.file.empty() ? IntoMemory(handle) : IntoFile(handle, fetch.file);
    if (result != CURLE_OK) {
      return curl_easy_strerror(result);
    }
    if (std::string error = CheckSize(handle, fetch); !error.empty()) {
      return error;
    }
  }
  watch.Stop();
  curl_easy_cleanup(handle);
  return {};
}

std::string CurlFetchMany(const Fetch& fetch, Stopwatch& watch) {
  curl_global_init(CURL_GLOBAL_DEFAULT);
  watch.Start();
  std::vector<std::string> bodies(static_cast<std::size_t>(fetch.inFlight));
  std::vector<CURL*> handles;
  for (std::string& body : bodies) {
    CURL* handle = handles.emplace_back(curl_easy_init());
    Prepare(handle, fetch);
    curl_easy_setopt(handle, CURLOPT_WRITEFUNCTION, Append);
    curl_easy_setopt(handle, CURLOPT_WRITEDATA, &body);
    curl_easy_setopt(handle, CURLOPT_PRIVATE, &body);
  }
  std::string error = CurlMulti(handles, fetch.repetitions, [&fetch](CURL* handle) {
    std::string* body = nullptr;
    curl_easy_getinfo(handle, CURLINFO_PRIVATE, &body);
    std::string().swap(*body);
    return CheckSize(handle, fetch);
  });
  watch.Stop();
  for (CURL* handle : handles) {
    curl_easy_cleanup(handle);
  }
  return error;
}

}  // namespace netro::bench

#endif
