#include <netro/ICMPCls.h>
#include <netro/MessageLoop.h>
#include <netro/SocketCls.h>
#include <netro/UDPCls.h>
#include <netro/testkit/BytesServer.h>
#include <netro/testkit/DatagramServer.h>

#include <chrono>

#include "Scenario.h"
#include "Servers.h"

namespace netro::torture {
namespace {

using namespace std::string_literals;

void AtEcho(World&, UDPCls& udp) {
  static auto& server = *new testkit::DatagramServer(
      [](const std::string& text) -> testkit::DatagramServer::Replies { return {text}; });
  udp.URL("127.0.0.1");
  udp.Port(server.Port());
}

std::int32_t Ask(UDPCls& udp) {
  std::int32_t error = 0;
  const std::string answer = udp.UDPQuery("question?", error);
  return Told(error == 0, answer == "question\0"s, error);
}

// Without memory for good, there may be no events.
std::int32_t StillWaiting(SocketCls& socket) {
  socket.Disconnect();
  return IsLasting() ? 10055 : kNoNumber;
}

// A stream as a host program has it: the outcome and the data are events.
Scenario Stream() {
  static auto& server = *new testkit::BytesServer(
      {{testkit::AwaitText("ping"), testkit::Send("pong"), testkit::HalfClose()}});
  const auto make = [](World& world) {
    const auto socket = std::make_shared<std::unique_ptr<SocketCls>>(std::make_unique<SocketCls>());
    (*socket)->Events(&world.events);
    const int port = world.Via(server.Port());
    const auto run = [socket, port] {
      const Hurting hurting;
      SocketCls& s = **socket;
      if (!s.Connect("127.0.0.1", port)) return Told(false, false, s.LastSocketErr());
      const auto state = [&] { return *socket ? s.State() : sockClosed; };
      if (!TurnUntil([&] { return state() != sockConnecting; })) return StillWaiting(s);
      if (state() != sockConnected) return *socket ? Told(false, false, s.LastSocketErr()) : 1;
      const std::int32_t sent = s.SendData("ping");
      if (!*socket || sent != 0) return std::max(sent, 1);
      if (!TurnUntil([&] { return state() != sockConnected; })) return StillWaiting(s);
      if (*socket) s.Disconnect();
      return kDone;
    };
    return Subject{run, nullptr, [socket] { socket->reset(); }};
  };
  return {"Connect, SendData, DataArrival", make};
}

}  // namespace

std::vector<Scenario> SocketScenarios() {
  return {
      Stream(),
      Make<UDPCls>("UDPQuery", AtEcho, Ask, [](UDPCls&, std::int32_t error) { return error; }),
      Make<ICMPCls>(
          "PingHost", [](World& world, ICMPCls& icmp) { icmp.Events(&world.events); },
          [](ICMPCls& icmp) { return icmp.PingHost("127.0.0.1"); },
          [](ICMPCls&, std::int32_t time) { return Told(time >= 0, true, 1); }),
  };
}

}  // namespace netro::torture
