// Echo with Asio sockets on one io_context.

#include "bench/Echo.h"

#ifdef NETRO_HAVE_ASIO

#include <array>
#include <asio.hpp>
#include <deque>

namespace netro::bench {
namespace {

struct Shared {
  asio::io_context context{1};
  std::array<char, kMessageBytes> message{};
  int roundTripsLeft = 0;
  std::string error = {};

  void Fail(const asio::error_code& code) {
    error = code.message();
    context.stop();
  }
};

class Client {
 public:
  explicit Client(Shared& shared) : shared_(shared), socket_(shared.context) {}

  void Open(std::uint16_t port) {
    socket_.connect({asio::ip::address_v4::loopback(), port});
    socket_.non_blocking(true);
    Receive();
  }

  void SendMessage() {
    asio::async_write(socket_, asio::buffer(shared_.message),
                      [this](const asio::error_code& code, std::size_t) {
                        if (code) {
                          shared_.Fail(code);
                        }
                      });
  }

 private:
  void Receive() {
    asio::async_read(socket_, asio::buffer(received_),
                     [this](const asio::error_code& code, std::size_t) { Received(code); });
  }

  void Received(const asio::error_code& code) {
    if (code) {
      shared_.Fail(code);
    } else if (--shared_.roundTripsLeft > 0) {
      SendMessage();
      Receive();
    } else {
      shared_.context.stop();
    }
  }

  Shared& shared_;
  asio::ip::tcp::socket socket_;
  std::array<char, kMessageBytes> received_{};
};

}  // namespace

std::string AsioEcho(const Echo& echo, std::uint16_t port, Stopwatch& watch) try {
  Shared shared;
  std::deque<Client> clients;
  for (int i = 0; i < echo.idle + echo.busy; ++i) {
    clients.emplace_back(shared).Open(port);
  }
  shared.roundTripsLeft = echo.roundTrips;
  watch.Start();
  for (int i = 0; i < echo.busy; ++i) {
    clients[static_cast<std::size_t>(echo.idle + i)].SendMessage();
  }
  shared.context.run();
  watch.Stop();
  return shared.error;
} catch (const std::exception& error) {
  return error.what();
}

}  // namespace netro::bench

#endif
