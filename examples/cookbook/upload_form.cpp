// Sends a file as a browser's form does; it is read while it is sent: upload_form URL FILE
#include <netro/HTTPCls.h>

#include <iostream>

int main(int argc, char** argv) {
  if (argc < 3) return 2;
  netro::HTTPCls http;
  http.URL(argv[1]);
  http.AddFormField("title", "A report");
  http.AddFormFile("document", argv[2]);
  http.User("jane");
  http.Password("secret");
  http.SendAuthAfterChallenge(true);  // at once, as Basic: over https only

  bool timeout = false;
  const std::string answer = http.HTTPQuery(timeout);
  if (http.LastErr() != 0) std::cerr << answer << '\n';
  std::cout << http.HTTPResult() << ' ' << http.HTTPResultMsg() << '\n';
  return http.LastErr() == 0 && http.HTTPResult() < 300 ? 0 : 1;
}
