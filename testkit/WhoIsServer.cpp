#include <netro/testkit/WhoIsServer.h>

#include <utility>

namespace netro::testkit {

WhoIsServer::WhoIsServer(Answer answer, int port, const std::string& address)
    : answer_(std::move(answer)),
      server_([this](Connection& connection, std::size_t) { Serve(connection); }, port, address) {}

std::vector<std::string> WhoIsServer::Queries() {
  const std::lock_guard lock(mutex_);
  return queries_;
}

void WhoIsServer::Serve(Connection& connection) {
  std::string query;
  while (query.find('\n') == std::string::npos) {
    if (!connection.Read(query)) return;
  }
  query.resize(query.find_first_of("\r\n"));
  {
    const std::lock_guard lock(mutex_);
    queries_.push_back(query);
  }
  Response response = answer_(query);
  if (response.after == After::GoOn) response.after = After::Close;
  connection.Give(response);
}

}  // namespace netro::testkit
