// Sends a line to a server of your own protocol and prints what comes until it closes:
// line_client HOST PORT LINE
#include <netro/MessageLoop.h>
#include <netro/SocketCls.h>

#include <cstdlib>
#include <iostream>

struct Client : netro::SocketClsEvents {
  netro::SocketCls socket;
  std::string line;
  int status = 1;

  void Connect() override { socket.QueueData(line + "\r\n"); }
  void DataArrival(const netro::Bytes& block, const std::string&) override {
    std::cout.write(reinterpret_cast<const char*>(block.data()),
                    static_cast<std::streamsize>(block.size()));
  }
  void Closed() override { End(socket.LastSocketErr() == 0 ? 0 : 1); }
  void Error(std::int32_t, const std::string& description) override {
    std::cerr << description << '\n';
    End(1);
  }
  void End(int value) {
    status = value;
    netro::MessageLoop::ForThisThread().QuitLoop();
  }
};

int main(int argc, char** argv) {
  if (argc < 4) return 2;
  Client client;
  client.line = argv[3];
  client.socket.Events(&client);
  if (!client.socket.Connect(argv[1], std::atoi(argv[2]))) return 1;
  netro::MessageLoop::ForThisThread().RunLoop();
  return client.status;
}
