// Many transfers side by side with libcurl's multi interface on one thread.
#pragma once

#ifdef NETRO_HAVE_CURL

#include <curl/curl.h>

#include <functional>
#include <span>
#include <string>

namespace netro::bench {

/// Checks a transfer that has ended and makes its handle ready for the next one; returns an error
/// text, empty when all went well.
using CurlFinished = std::function<std::string(CURL* handle)>;

/// Makes so many transfers with these handles, each over again and all at the same time. Returns an
/// error text, empty when all went well.
std::string CurlMulti(std::span<CURL* const> handles, int transfers, const CurlFinished& finished);

}  // namespace netro::bench

#endif
