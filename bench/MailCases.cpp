// Messages to a mail server that does nothing but answer: it counts the bytes of each and throws
// them away.

#include "bench/MailCases.h"

#include <algorithm>
#include <cstdio>
#include <string>
#include <string_view>
#include <utility>

#include "bench/Cases.h"
#include "bench/Delivery.h"
#include "bench/LoadServer.h"

namespace netro::bench {
namespace {

constexpr std::string_view kEndOfData = "\r\n.\r\n";
/// Takes a block of a message; the reply comes with its end.
std::string_view TakeData(std::string_view received, Session& session, std::size_t size) {
  session.bytes += received.size();
  session.tail += received.substr(received.size() - std::min(received.size(), kEndOfData.size()));
  session.tail.erase(0, session.tail.size() - std::min(session.tail.size(), kEndOfData.size()));
  if (session.tail != kEndOfData) {
    return {};
  }
  const bool complete = std::exchange(session, {}).bytes == size + kEndOfData.size();
  return complete ? "250 ok\r\n" : "554 not all of it\r\n";
}

/// A client waits for the reply, so nothing comes behind the end of a command or of the data.
std::string_view Reply(std::string_view received, Session& session, std::size_t size) {
  if (session.inData) {
    return TakeData(received, session, size);
  }
  if (!received.ends_with("\r\n")) {
    return {};
  }
  session.inData = received.starts_with("DATA");
  return session.inData                 ? "354 go on\r\n"
         : received.starts_with("QUIT") ? "221 bye\r\n"
                                        : "250 ok\r\n";
}

std::string MessageOf(std::size_t size) {
  std::string message = "From: a@x.test\r\nTo: b@x.test\r\nSubject: measured\r\n\r\n";
  while (message.size() < size) {
    message.append(76, 'x').append("\r\n");
  }
  message.resize(size, 'x');
  return message;
}

using Deliverer = decltype(&NetroDeliver);

std::string DeliverAll(Deliverer deliver, std::size_t size, int repetitions, int inFlight,
                       Stopwatch& watch) {
  const LoadServer server([size](std::string_view received,
                                 Session& session) { return Reply(received, session, size); },
                          "220 bench\r\n");
  return server.Port() == 0
             ? "no mail server"
             : deliver({server.Port(), MessageOf(size), repetitions, inFlight}, watch);
}

struct Load {
  std::string name;
  std::string unit;
  double units;
  std::size_t size;
  int repetitions;
  int inFlight = 1;
};

void Add(const Load& load, const std::string& library, Deliverer deliver,
         const std::string& against) {
  AddCase({load.name, library, load.unit, load.units, against, [load, deliver](Stopwatch& watch) {
             return DeliverAll(deliver, load.size, load.repetitions, load.inFlight, watch);
           }});
}

void AddBesideCurl(const Load& load) {
  const bool many = load.inFlight > 1;
#ifdef NETRO_HAVE_CURL
  Add(load, "libcurl", many ? CurlDeliverMany : CurlDeliver, "");
#endif
  Add(load, "netro", many ? NetroDeliverMany : NetroDeliver, load.name + "/libcurl");
}

}  // namespace

void AddMailCases() {
#ifndef NETRO_HAVE_CURL
  std::fprintf(stderr, "left out: libcurl\n");
#endif
  AddBesideCurl({"mail of 1 KB", "messages", 5000, 1000, 5000});
  AddBesideCurl({"mail of 1 KB, 16 in flight", "messages", 1000, 1000, 1000, 16});
  AddBesideCurl({"mail of 25 MB", "MB", 25 * 40, 25'000'000, 40});
}

}  // namespace netro::bench
