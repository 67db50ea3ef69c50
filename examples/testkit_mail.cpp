// A test of a program that sends mail: the server refuses one of two recipients, and the test reads
// what came for the other.
//
// This is a self-check: it ends with 0 when the message arrived and the refusal was told.
#include <netro/SendMailCls.h>
#include <netro/testkit/SmtpServer.h>

#include <cstdio>
#include <string>

int main() {
  using netro::testkit::SmtpServer;
  SmtpServer server([](const std::string& command) -> SmtpServer::Answer {
    if (command.starts_with("RCPT TO:<nobody")) return "550 no such user\r\n";
    return SmtpServer::Politely(command);
  });

  netro::SendMailCls mail;
  mail.ReceiverHostName("127.0.0.1");
  mail.Port(server.Port());
  mail.NewTextMsg("Report", "jane@example.com", "boss@example.org, nobody@example.org",
                  "All is well.");
  const bool sent = mail.SendMail();

  int accepted = 0;
  for (const netro::RecipientOutcome& outcome : mail.Outcomes()) {
    std::printf("%s: %s\n", outcome.Address.c_str(), outcome.Accepted ? "accepted" : "refused");
    accepted += outcome.Accepted ? 1 : 0;
  }
  const auto messages = server.Messages();
  const bool arrived = messages.size() == 1 &&
                       messages[0].find("Subject: Report\r\n") != std::string::npos &&
                       messages[0].find("All is well.") != std::string::npos;
  return !sent && accepted == 1 && arrived ? 0 : 1;
}
