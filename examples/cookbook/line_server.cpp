// A server that sends each line back, for any number of clients on one thread: line_server [PORT]
#include <netro/MessageLoop.h>
#include <netro/SocketCls.h>

#include <cstdlib>
#include <functional>
#include <iostream>
#include <list>

struct Client : netro::SocketClsEvents {
  netro::SocketCls socket;
  std::string text;  // that has come and is no whole line yet
  std::function<void()> gone;

  void DataArrival(const netro::Bytes& block, const std::string&) override {
    text.append(block.begin(), block.end());
    for (auto end = text.find('\n'); end != text.npos; end = text.find('\n')) {
      socket.QueueData("you said: " + text.substr(0, end + 1));
      text.erase(0, end + 1);
    }
    if (text.size() > 8192) gone();  // nobody may fill the memory
  }
  void Closed() override { gone(); }  // deletes this object, which an event may do
};

struct Server : netro::SocketClsEvents {
  netro::SocketCls listener;
  std::list<Client> clients;
  void ConnectionRequest(std::int32_t request) override {
    const auto client = clients.emplace(clients.end());
    client->gone = [this, client] { clients.erase(client); };
    client->socket.Events(&*client);
    client->socket.Accept(request);
  }
};

int main(int argc, char** argv) {
  Server server;
  server.listener.Events(&server);
  server.listener.LocalPort(argc > 1 ? std::atoi(argv[1]) : 0);
  if (!server.listener.Listen("127.0.0.1")) return 1;
  std::cout << "port " << server.listener.LocalPort() << std::endl;
  netro::MessageLoop::ForThisThread().RunLoop();
}
