// Asking with one channel of c-ares. It closes its socket when no query is left, so that queries
// one after the other have a new one each. Several at the same time share one socket.

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

class Asking {
 public:
  Asking(ares_channel channel, const DnsQueries& queries) : channel_(channel), queries_(queries) {}

  /// Returns an error text, empty when all went well.
  std::string Run() {
    while (error_.empty() && (underWay_ > 0 || notBegun_ > 0)) {
      for (int free = queries_.inFlight - underWay_; free > 0; --free) {
        Ask();
      }
      Turn(channel_);
    }
    return error_;
  }

 private:
  void Ask() {
    if (notBegun_ > 0) {
      --notBegun_;
      ++underWay_;
      ares_query(channel_, queries_.name.c_str(), ns_c_in, queries_.type, OnReply, this);
    }
  }

  static void OnReply(void* self, int status, int, unsigned char* reply, int size) {
    static_cast<Asking*>(self)->Take(status, reply, size);
  }

  void Take(int status, const unsigned char* reply, int size) {
    int records = 0;
    --underWay_;
    if (status == ARES_SUCCESS) {
      status = (queries_.type == ns_t_mx ? CountMailServers : CountAddresses)(reply, size, records);
    }
    if (status != ARES_SUCCESS) {
      error_ = ares_strerror(status);
    } else if (records != queries_.records) {
      error_ = "a reply of " + std::to_string(records) + " records";
    } else if (queries_.inFlight > 1) {
      Ask();  // before the channel finds itself idle and closes its socket
    }
  }

  const ares_channel channel_;
  const DnsQueries& queries_;
  int notBegun_ = queries_.repetitions;
  int underWay_ = 0;
  std::string error_ = {};
};

}  // namespace

std::string AresQueries(const DnsQueries& queries, Stopwatch& watch) {
  ares_library_init(ARES_LIB_INIT_ALL);
  ares_channel channel = nullptr;
  if (const int status = OpenChannel(queries, channel); status != ARES_SUCCESS) {
    return ares_strerror(status);
  }
  watch.Start();
  std::string error = Asking(channel, queries).Run();
  watch.Stop();
  ares_destroy(channel);
  return error;
}

}  // namespace netro::bench

#endif
