// Downloads a large file, with progress; run again, it goes on where it was cut:
// resume_download URL FILE
#include <netro/HTTPCls.h>

#include <iostream>

struct Progress : netro::HTTPClsEvents {
  void Status(netro::HTTPCls& http, const std::string&) override {
    std::cerr << '\r' << http.ReceivedBytes() << " bytes";
  }
};

int main(int argc, char** argv) {
  if (argc < 3) return 2;
  Progress progress;
  netro::HTTPCls http;
  http.Events(&progress);
  http.URL(argv[1]);
  http.SaveAsFile(true);
  http.Filename(argv[2]);
  http.Resume(true);  // until the file is whole, what came is in FILE.part
  http.TimeOutSeconds(24 * 3600);
  http.IdleTimeout(std::chrono::seconds(30));

  bool timeout = false;
  const std::string answer = http.HTTPQuery(timeout);
  std::cerr << '\n';
  if (http.LastErr() != 0) {
    std::cout << answer << "\nRun me again for the rest.\n";
    return 1;
  }
  std::cout << http.HTTPResult() << ", " << http.BodyLen() << " bytes in " << argv[2] << '\n';
  return http.HTTPResult() < 300 ? 0 : 1;
}
