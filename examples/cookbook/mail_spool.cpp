// Puts a mail into a folder, from where it is sent until it has arrived, also by a later run:
// mail_spool FOLDER HOST PORT
#include <netro/MailSpool.h>
#include <netro/SendMailCls.h>

#include <cstdlib>
#include <iostream>

struct Journal : netro::MailSpoolEvents {
  void Delivered(const std::string&, const netro::SpooledRecipient& to) override {
    std::cout << to.Address << ": delivered\n";
  }
  void Deferred(const std::string&, const netro::SpooledRecipient& to) override {
    std::cout << to.Address << ": later, " << to.Answer << '\n';
  }
};

int main(int argc, char** argv) {
  if (argc < 4) return 2;
  netro::SendMailCls mail;
  mail.NewTextMsg("Report", "jane@example.com", "boss@example.org", "All is well.");
  if (!mail.SpoolMsg(argv[1])) {  // when this is true, it is on the disk
    std::cout << mail.ResultMessage() << '\n';
    return 1;
  }

  Journal journal;
  netro::MailSpool spool;
  spool.Events(&journal);
  spool.Folder(argv[1]);
  spool.Mail().ReceiverHostName(argv[2]);
  spool.Mail().Port(std::atoi(argv[3]));
  spool.DeliverDue();  // from a timer, in a program that runs on
  std::cout << spool.List().size() << " waiting\n";
}
