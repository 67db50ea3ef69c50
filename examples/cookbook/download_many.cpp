// Downloads the URLs on its standard input, 20 at a time: download_many FOLDER < urls
#include <netro/HTTPCls.h>
#include <netro/MessageLoop.h>

#include <iostream>

int main(int argc, char** argv) {
  const std::string folder = argc > 1 ? argv[1] : ".";
  int begun = 0;
  int failed = 0;

  // Each of the 20 takes the next URL when it is done with one. Tasks share a thread: no locks.
  const auto work = [&] {
    netro::HTTPCls http;
    http.KeepAlive(true);  // the connections serve the next file too
    http.SaveAsFile(true);
    http.ReplaceWhenWhole(true);
    for (std::string url; std::getline(std::cin, url);) {
      http.URL(url);
      http.Filename(folder + "/" + std::to_string(++begun));
      bool timeout = false;
      const std::string answer = http.HTTPQuery(timeout);
      if (http.LastErr() == 0 && http.HTTPResult() == 200) continue;
      ++failed;
      std::cerr << url << ": " << (http.LastErr() == 0 ? http.HTTPResultMsg() : answer) << '\n';
    }
  };

  netro::MessageLoop& loop = netro::MessageLoop::ForThisThread();
  std::vector<netro::Task> tasks;
  for (int i = 0; i < 20; ++i) tasks.push_back(loop.StartTask(work));
  for (const netro::Task& task : tasks) task.Wait();
  std::cout << begun - failed << " of " << begun << " downloaded\n";
  return failed == 0 ? 0 : 1;
}
