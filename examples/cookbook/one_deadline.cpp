// Fetches several pages within one limit for all of it: one_deadline MILLISECONDS URL...
#include <netro/HTTPCls.h>
#include <netro/MessageLoop.h>

#include <cstdlib>
#include <iostream>

int main(int argc, char** argv) {
  if (argc < 3) return 2;
  const netro::Task task = netro::MessageLoop::ForThisThread().StartTask([&] {
    netro::Task::Current().Deadline(std::chrono::milliseconds(std::atoi(argv[1])));
    for (int i = 2; i < argc; ++i) {
      netro::HTTPCls http;
      http.URL(argv[i]);
      bool timeout = false;
      http.HTTPQuery(timeout);
      if (http.LastErr() == 10002) {
        std::cout << "no time left for " << argc - i << " of " << argc - 2 << '\n';
        return;
      }
      std::cout << http.HTTPResult() << '\n';
    }
  });
  return task.Wait();
}
