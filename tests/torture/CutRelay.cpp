#include "CutRelay.h"

#include <poll.h>
#include <sys/socket.h>

#include <algorithm>
#include <string_view>

namespace netro::torture {

void Cut::At(Direction direction, long bytes, End by) {
  Never();
  end = by;
  left[direction] = bytes;
}

void Cut::Never() {
  for (int direction : {0, 1}) {
    left[direction] = kNever;
    passed[direction] = 0;
  }
}

CutRelay::CutRelay(int target, Cut& cut)
    : target_(target),
      cut_(cut),
      server_([this](testkit::Connection& client, std::size_t) { Serve(client); }) {}

void CutRelay::Serve(testkit::Connection& client) {
  const int fd = testkit::ConnectToLoopback(target_);
  if (fd < 0) return client.Reset();
  testkit::Connection server(fd, client.StopFd());
  bool open[2] = {true, true};
  while (open[0] || open[1]) {
    pollfd entries[] = {{open[0] ? server.Fd() : -1, POLLIN, 0},
                        {open[1] ? client.Fd() : -1, POLLIN, 0},
                        {client.StopFd(), POLLIN, 0}};
    if (poll(entries, 3, -1) < 0 || entries[2].revents != 0) return;
    if (entries[0].revents != 0) open[0] = Pass(server, client, Cut::FromServer);
    if (entries[1].revents != 0) open[1] = Pass(client, server, Cut::FromClient);
    if (client.Fd() < 0 || server.Fd() < 0) return;
  }
}

bool CutRelay::Pass(testkit::Connection& from, testkit::Connection& to, Cut::Direction direction) {
  char block[4096];
  const ssize_t got = recv(from.Fd(), block, sizeof block, 0);
  if (got <= 0) {
    got == 0 ? to.HalfClose() : to.Reset();
    return false;
  }
  const long taken = std::min<long>(got, cut_.left[direction]);
  to.Send(std::string_view(block, static_cast<std::size_t>(taken)));
  cut_.passed[direction] += taken;
  if (cut_.left[direction] >= Cut::kNever / 2) return true;
  cut_.left[direction] -= taken;
  if (cut_.left[direction] > 0 || cut_.end == Cut::Silent) return true;
  cut_.left[direction] = Cut::kNever;
  testkit::Connection& client = direction == Cut::FromServer ? to : from;
  cut_.end == Cut::Reset ? client.Reset() : client.Close();
  return false;
}

}  // namespace netro::torture
