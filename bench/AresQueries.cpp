// Asking with one channel of c-ares. It closes its socket when no query is left, so that each query
// has a new one.

#include "bench/DnsQueries.h"

#ifdef NETRO_HAVE_CARES

// Later versions want other functions for what these do.
#define CARES_NO_DEPRECATED

#include <ares.h>
#include <arpa/nameser.h>
#include <netdb.h>
#include <poll.h>

#include <array>

namespace netro::bench {
namespace {

/// Reads the records of a reply and counts them; returns a status.
using CountRecords = int (*)(const unsigned char* reply, int size, int& records);

int CountAddresses(const unsigned char* reply, int size, int& records) {
  hostent* host = nullptr;
  const int status = ares_parse_a_reply(reply, size, &host, nullptr, nullptr);
  if (host != nullptr) {
    for (char** address = host->h_addr_list; *address != nullptr; ++address) {
      ++records;
    }
    ares_free_hostent(host);
  }
  return status;
}

int CountMailServers(const unsigned char* reply, int size, int& records) {
  ares_mx_reply* first = nullptr;
  const int status = ares_parse_mx_reply(reply, size, &first);
  for (const ares_mx_reply* record = first; record != nullptr; record = record->next) {
    ++records;
  }
  ares_free_data(first);
  return status;
}

struct Outcome {
  CountRecords count;
  bool done = false;
  int status = ARES_SUCCESS;
  int records = 0;
};

void OnReply(void* argument, int status, int, unsigned char* reply, int size) {
  Outcome& outcome = *static_cast<Outcome*>(argument);
  outcome.done = true;
  outcome.status = status == ARES_SUCCESS ? outcome.count(reply, size, outcome.records) : status;
}

/// Waits for one event of the channel's socket and lets the channel handle it.
void Turn(ares_channel channel) {
  std::array<ares_socket_t, ARES_GETSOCK_MAXNUM> sockets;
  const auto mask = static_cast<unsigned>(
      ares_getsock(channel, sockets.data(), static_cast<int>(sockets.size())));
  pollfd one{sockets[0], 0, 0};
  one.events = static_cast<short>((ARES_GETSOCK_READABLE(mask, 0) ? POLLIN : 0) |
                                  (ARES_GETSOCK_WRITABLE(mask, 0) ? POLLOUT : 0));
  constexpr int kMilliseconds = 1000;
  poll(&one, mask != 0 ? 1 : 0, kMilliseconds);
  const bool readable = (one.revents & (POLLIN | POLLERR | POLLHUP)) != 0;
  const bool writable = (one.revents & POLLOUT) != 0;
  ares_process_fd(channel, readable ? one.fd : ARES_SOCKET_BAD,
                  writable ? one.fd : ARES_SOCKET_BAD);
}

int OpenChannel(const DnsQueries& queries, ares_channel& channel) {
  ares_options options{};
  int given = ARES_OPT_FLAGS;
  options.flags = queries.tcp ? ARES_FLAG_USEVC : 0;
#ifdef ARES_OPT_QUERY_CACHE
  given |= ARES_OPT_QUERY_CACHE;  // a life of 0 seconds switches it off
#endif
  const int status = ares_init_options(&channel, &options, given);
  const std::string server = "127.0.0.1:" + std::to_string(queries.port);
  return status != ARES_SUCCESS ? status : ares_set_servers_ports_csv(channel, server.c_str());
}

}  // namespace

std::string AresQueries(const DnsQueries& queries, Stopwatch& watch) {
  ares_library_init(ARES_LIB_INIT_ALL);
  ares_channel channel = nullptr;
  if (const int status = OpenChannel(queries, channel); status != ARES_SUCCESS) {
    return ares_strerror(status);
  }
  watch.Start();
  for (int i = 0; i < queries.repetitions; ++i) {
    Outcome outcome{queries.type == ns_t_mx ? CountMailServers : CountAddresses};
    ares_query(channel, queries.name.c_str(), ns_c_in, queries.type, OnReply, &outcome);
    while (!outcome.done) {
      Turn(channel);
    }
    if (outcome.status != ARES_SUCCESS) {
      return ares_strerror(outcome.status);
    }
    if (outcome.records != queries.records) {
      return "a reply of " + std::to_string(outcome.records) + " records";
    }
  }
  watch.Stop();
  ares_destroy(channel);
  return {};
}

}  // namespace netro::bench

#endif
