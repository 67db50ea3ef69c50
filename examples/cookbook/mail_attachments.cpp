// Sends a mail with two attachments through a server that wants a login, protected by TLS:
// mail_attachments HOST PORT FILE FILE [TRUST]
#include <netro/SendMailCls.h>
#include <netro/tls/OpenSslTls.h>

#include <cstdlib>
#include <iostream>

int main(int argc, char** argv) {
  if (argc < 5) return 2;
  netro::TlsSettings trust;
  if (argc > 5) trust.trustFile = argv[5];  // instead of the system's authorities
  std::string error;

  netro::SendMailCls mail;
  mail.ReceiverHostName(argv[1]);
  mail.Port(std::atoi(argv[2]));
  mail.Tls(netro::MakeOpenSslProvider(trust, error));
  mail.Security(netro::smtpTlsFromFirstByte);  // port 465; smtpTlsRequired for 587
  mail.User("jane@example.com");
  mail.Password("secret");

  mail.NewTextMsg("The figures", "Jane <jane@example.com>", "boss@example.org",
                  "See the two files.");
  if (!mail.AddAttachment(argv[3]) || !mail.AddAttachment(argv[4]) || !mail.SendMail()) {
    std::cout << mail.Result() << ' ' << mail.ResultMessage() << '\n';
    return 1;
  }
  std::cout << "sent, " << mail.MessageSize() << " bytes\n";
}
