#include <netro/testkit/SocksServer.h>

#include <initializer_list>
#include <utility>

namespace netro::testkit {
namespace {

std::string Octets(std::initializer_list<int> values) {
  std::string bytes;
  for (const int value : values) bytes += static_cast<char>(value);
  return bytes;
}

int PortAt(const std::string& bytes, std::size_t at) {
  return static_cast<std::uint8_t>(bytes[at]) * 256 + static_cast<std::uint8_t>(bytes[at + 1]);
}

}  // namespace

struct SocksServer::Dialogue {
  Connection& connection;
  std::string request;
  int targetPort = 0;
  std::size_t replies = 0;

  // Reads until the present request has `count` bytes.
  bool Want(std::size_t count) {
    while (request.size() < count)
      if (!connection.Read(request)) return false;
    return true;
  }
  // Reads on to the zero byte that follows position `at`; moves `at` behind it.
  bool WantText(std::size_t& at) {
    while (Want(at + 1))
      if (request[at++] == '\0') return true;
    return false;
  }
  std::size_t Length(std::size_t at) const { return static_cast<std::uint8_t>(request[at]); }
};

SocksServer::SocksServer(SocksRules rules)
    : rules_(std::move(rules)),
      server_([this](Connection& connection, std::size_t) { Serve(connection); }) {}

std::vector<std::string> SocksServer::Requests() {
  const std::lock_guard lock(mutex_);
  return requests_;
}

void SocksServer::Keep(Dialogue& dialogue) {
  const std::lock_guard lock(mutex_);
  requests_.push_back(std::exchange(dialogue.request, {}));
}

void SocksServer::Serve(Connection& connection) {
  Dialogue dialogue{connection, {}};
  if (!dialogue.Want(1)) return;
  const bool opened = dialogue.request[0] == 4 ? Version4(dialogue) : Version5(dialogue);
  if (opened) {
    Relay(connection, dialogue.targetPort);
    return;
  }
  connection.HalfClose();
  std::string rest;
  connection.ReadToEnd(rest);
}

bool SocksServer::Reply(Dialogue& dialogue, std::string bytes, bool opensTunnel) {
  const std::size_t number = dialogue.replies++;
  if (number == rules_.closeAt) return false;
  if (number == rules_.silentAt) {
    std::string rest;
    dialogue.connection.ReadToEnd(rest);
    return false;
  }
  if (rules_.shortReplies) bytes.resize(2);
  if (opensTunnel) bytes += rules_.early;
  return dialogue.connection.SendCut(bytes, rules_.cuts);
}

// 4, 1, port, address, user, 0; in 4a the address is 0.0.0.x and the host name and 0 follow.
bool SocksServer::Version4(Dialogue& dialogue) {
  std::size_t at = 8;
  if (!dialogue.Want(8) || !dialogue.WantText(at)) return false;
  const std::string& request = dialogue.request;
  const bool hasName = request.compare(4, 3, std::string(3, '\0')) == 0 && request[7] != '\0';
  if (hasName && !dialogue.WantText(at)) return false;
  dialogue.targetPort = PortAt(request, 2);
  Keep(dialogue);
  const bool granted = rules_.version4Reply == 90;
  return Reply(dialogue, Octets({0, rules_.version4Reply, 0, 0, 0, 0, 0, 0}), granted) && granted;
}

bool SocksServer::Version5(Dialogue& dialogue) {
  if (!dialogue.Want(2) || !dialogue.Want(2 + dialogue.Length(1))) return false;
  Keep(dialogue);
  if (!Reply(dialogue, Octets({5, rules_.method}))) return false;
  if (rules_.method == 255 || (rules_.method == 2 && !Login(dialogue))) return false;

  if (!dialogue.Want(5)) return false;
  const std::size_t address = dialogue.request[3] == 3 ? 1 + dialogue.Length(4) : 4;
  if (!dialogue.Want(4 + address + 2)) return false;
  dialogue.targetPort = PortAt(dialogue.request, 4 + address);
  Keep(dialogue);
  const bool granted = rules_.version5Reply == 0;
  const std::string reply = Octets({5, rules_.version5Reply, 0, 1, 0, 0, 0, 0, 0, 0});
  return Reply(dialogue, reply, granted) && granted;
}

bool SocksServer::Login(Dialogue& dialogue) {
  if (!dialogue.Want(2) || !dialogue.Want(3 + dialogue.Length(1))) return false;
  const std::size_t user = dialogue.Length(1);
  const std::size_t password = dialogue.Length(2 + user);
  if (!dialogue.Want(3 + user + password)) return false;
  const bool accepted = dialogue.request.substr(2, user) == rules_.user &&
                        dialogue.request.substr(3 + user) == rules_.password;
  Keep(dialogue);
  return Reply(dialogue, Octets({1, accepted ? 0 : 1})) && accepted;
}

}  // namespace netro::testkit
