// Asks a mail server whether it would take a mail for an address, and sends none:
// check_address ADDRESS [HOST PORT]
#include <netro/SendMailCls.h>

#include <cstdlib>
#include <iostream>

int main(int argc, char** argv) {
  if (argc < 2) return 2;
  netro::SendMailCls mail;
  if (argc > 3) {  // else the mail exchangers of its domain
    mail.ReceiverHostName(argv[2]);
    mail.Port(std::atoi(argv[3]));
  }
  mail.TotalTimeout(std::chrono::seconds(30));
  if (!mail.CheckeMailAddressSyntax(argv[1])) {
    std::cout << "no address: " << mail.ResultMessage() << '\n';
    return 1;
  }
  if (!mail.CheckeMailAddress(argv[1], "jane@example.com")) {
    std::cout << "not taken: " << mail.ResultMessage() << '\n';
    return 1;
  }
  std::cout << "taken\n";
}
