// Lets Ctrl-C end a call in an orderly way: stop_with_ctrl_c URL
#include <netro/HTTPCls.h>
#include <netro/MessageLoop.h>

#include <csignal>
#include <iostream>

netro::Task task;

int main(int argc, char** argv) {
  const std::string url = argc > 1 ? argv[1] : "http://example.com/";
  int result = 0;
  task = netro::MessageLoop::ForThisThread().StartTask([&] {
    netro::HTTPCls http;
    http.URL(url);
    bool timeout = false;
    http.HTTPQuery(timeout);
    result = http.LastErr();
  });
  std::signal(SIGINT, [](int) { task.Cancel(); });  // Cancel may come from a signal handler
  std::cout << "Ctrl-C stops me" << std::endl;
  task.Wait();
  std::cout << (result == 9999 ? "stopped" : "done") << '\n';
  return result == 0 ? 0 : 1;
}
