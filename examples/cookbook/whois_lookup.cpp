// Asks a WHOIS server who owns a name: whois_lookup NAME SERVER
#include <netro/WhoIsCls.h>

#include <iostream>

int main(int argc, char** argv) {
  if (argc < 3) return 2;
  netro::WhoIsCls whois;
  whois.Timeout(std::chrono::seconds(10));
  whois.Follow(true);  // goes on to the server that an answer refers to
  const bool answered = whois.WhoIs(argv[2], argv[1]);
  for (const netro::WhoIsAnswer& answer : whois.Answers()) {
    std::cerr << "--- " << answer.Server << '\n';
    std::cout << answer.Text;
  }
  if (!answered) std::cerr << whois.LastErrMsg() << '\n';
  return answered ? 0 : 1;
}
