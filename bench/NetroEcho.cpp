// Echo with SocketCls objects on this thread's loop.

#include <netro/MessageLoop.h>
#include <netro/SocketCls.h>

#include <deque>

#include "bench/Echo.h"

namespace netro::bench {
namespace {

constexpr int kConnectsAtOnce = 500;

/// What all clients of a run share.
struct Shared {
  MessageLoop& loop = MessageLoop::ForThisThread();
  Bytes message = Bytes(kMessageBytes, 'm');
  int connecting = 0;
  int roundTripsLeft = 0;
  std::string error = {};

  void Fail(const std::string& what) {
    error = what;
    loop.QuitLoop();
  }
};

class Client : public SocketClsEvents {
 public:
  explicit Client(Shared& shared) : shared_(shared) { socket_.Events(this); }

  bool Open(std::uint16_t port) { return socket_.Connect("127.0.0.1", port); }

  void SendMessage() {
    missing_ = kMessageBytes;
    if (const std::int32_t error = socket_.SendData(shared_.message)) {
      shared_.Fail("send error " + std::to_string(error));
    }
  }

  void Connect() override {
    if (--shared_.connecting == 0) {
      shared_.loop.QuitLoop();
    }
  }

  void DataArrival(const Bytes& BinData, const std::string& RemoteHostIP) override {
    (void)RemoteHostIP;
    missing_ -= BinData.size();
    if (missing_ > 0) {
      return;
    }
    if (--shared_.roundTripsLeft > 0) {
      SendMessage();
    } else {
      shared_.loop.QuitLoop();
    }
  }

  void Closed() override { shared_.Fail("closed by the server"); }
  void Error(std::int32_t Error, const std::string& Description) override {
    shared_.Fail("error " + std::to_string(Error) + ", " + Description);
  }

 private:
  Shared& shared_;
  SocketCls socket_;
  std::size_t missing_ = 0;
};

void OpenAll(std::deque<Client>& clients, std::size_t count, std::uint16_t port, Shared& shared) {
  while (clients.size() < count && shared.error.empty()) {
    Client& client = clients.emplace_back(shared);
    if (!client.Open(port)) {
      shared.error = "connect failed at once";
      return;
    }
    if (++shared.connecting == kConnectsAtOnce || clients.size() == count) {
      shared.loop.RunLoop();
    }
  }
}

}  // namespace

std::string NetroEcho(const Echo& echo, std::uint16_t port, Stopwatch& watch) {
  Shared shared;
  std::deque<Client> clients;
  OpenAll(clients, static_cast<std::size_t>(echo.idle + echo.busy), port, shared);
  if (!shared.error.empty()) {
    return shared.error;
  }
  shared.roundTripsLeft = echo.roundTrips;
  // From inside the loop, because an event may arrive, and end it, during the first sends already.
  shared.loop.PostTask([&] {
    for (int i = 0; i < echo.busy; ++i) {
      clients[static_cast<std::size_t>(echo.idle + i)].SendMessage();
    }
  });
  watch.Start();
  shared.loop.RunLoop();
  watch.Stop();
  return shared.error;
}

}  // namespace netro::bench
