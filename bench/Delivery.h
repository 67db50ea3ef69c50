// The same finished message delivered with SMTPCls or SendMailCls, and with libcurl.
#pragma once

#include <cstdint>
#include <string>

#include "bench/Measure.h"

namespace netro::bench {

/// One message to one recipient, again and again, each time in a session of its own, or all in one.
struct Delivery {
  std::uint16_t port = 0;
  std::string message;  ///< without the end of its last line
  int repetitions = 1;
  int inFlight = 1;  ///< sessions at the same time; for DeliverMany
};

std::string NetroDeliver(const Delivery& delivery, Stopwatch& watch);
/// All in one session, with the extensions that the server offers.
std::string NetroDeliverKept(const Delivery& delivery, Stopwatch& watch);
std::string NetroDeliverMany(const Delivery& delivery, Stopwatch& watch);
#ifdef NETRO_HAVE_CURL
std::string CurlDeliver(const Delivery& delivery, Stopwatch& watch);
std::string CurlDeliverKept(const Delivery& delivery, Stopwatch& watch);
std::string CurlDeliverMany(const Delivery& delivery, Stopwatch& watch);
#endif

}  // namespace netro::bench
