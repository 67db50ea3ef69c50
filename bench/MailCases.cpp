// Messages to a mail server that does nothing but answer: it counts the bytes of each and throws
// them away.

#include "bench/MailCases.h"

#include <algorithm>
#include <charconv>
#include <cstdio>
#include <string>
#include <string_view>

#include "bench/Cases.h"
#include "bench/Delivery.h"
#include "bench/LoadServer.h"

namespace netro::bench {
namespace {

constexpr std::string_view kEndOfData = "\r\n.\r\n";

/// Takes a block of a message; the reply comes with its end.
void TakeData(std::string_view received, Session& session, std::size_t size) {
  session.bytes += received.size();
  session.tail += received.substr(received.size() - std::min(received.size(), kEndOfData.size()));
  session.tail.erase(0, session.tail.size() - std::min(session.tail.size(), kEndOfData.size()));
  if (session.tail != kEndOfData) {
    return;
  }
  const bool complete = session.bytes == size + kEndOfData.size();
  session.reply += complete ? "250 ok\r\n" : "554 not all of it\r\n";
  session.inData = false;
  session.bytes = 0;
  session.tail.clear();
}

/// What the command of a chunk says that follows it.
std::size_t ChunkSize(std::string_view command) {
  std::size_t size = 0;
  if (command.starts_with("BDAT ")) {
    std::from_chars(command.data() + 5, command.data() + command.size(), size);
  }
  return size;
}

void TakeCommand(std::string_view command, Session& session) {
  session.inData = command.starts_with("DATA");
  session.reply += session.inData                 ? "354 go on\r\n"
                   : command.starts_with("EHLO") ? "250-bench\r\n250-CHUNKING\r\n250 PIPELINING\r\n"
                   : command.starts_with("QUIT") ? "221 bye\r\n"
                                                 : "250 ok\r\n";
}

/// A client waits for the replies to what it has sent, so nothing comes behind the end of the last
/// command or of the data, and loopback brings a small chunk whole.
std::string_view Reply(std::string_view received, Session& session, std::size_t size) {
  session.reply.clear();
  if (session.inData) {
    TakeData(received, session, size);
    return session.reply;
  }
  for (std::size_t end = 0; (end = received.find("\r\n")) != received.npos;) {
    const std::string_view command = received.substr(0, end);
    TakeCommand(command, session);
    received.remove_prefix(std::min(end + 2 + ChunkSize(command), received.size()));
  }
  return session.reply;
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

void AddKept(const Load& load) {
#ifdef NETRO_HAVE_CURL
  Add(load, "libcurl", CurlDeliverKept, "");
#endif
  Add(load, "netro", NetroDeliverKept, load.name + "/libcurl");
}

}  // namespace

void AddMailCases() {
#ifndef NETRO_HAVE_CURL
  std::fprintf(stderr, "left out: libcurl\n");
#endif
  AddBesideCurl({"mail of 1 KB", "messages", 5000, 1000, 5000});
  AddKept({"mail of 1 KB, one session", "messages", 20'000, 1000, 20'000});
  AddBesideCurl({"mail of 1 KB, 16 in flight", "messages", 5000, 1000, 5000, 16});
  AddBesideCurl({"mail of 25 MB", "MB", 25 * 40, 25'000'000, 40});
}

}  // namespace netro::bench
