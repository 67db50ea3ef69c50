// Fetches a page as the server likes to pack it, and tells what was saved: compressed_page URL
#include <netro/HTTPCls.h>
#include <netro/SystemCodings.h>

#include <iostream>

int main(int argc, char** argv) {
  if (argc < 2) return 2;
  const std::shared_ptr<netro::CodingProvider> codings = netro::SystemCodings();
  netro::HTTPCls http;
  http.ContentCoding(codings);  // any number of objects may share it
  http.MaxBodyLen(10'000'000);  // counts what is unpacked, so no answer fills the memory
  http.URL(argv[1]);
  bool timeout = false;
  const std::string answer = http.HTTPQuery(timeout);
  if (http.LastErr() != 0) {
    std::cout << answer << '\n';
    return 1;
  }
  std::cout << http.BodyLen() << " bytes, packed as " << http.Header("Content-Encoding") << '\n';
}
