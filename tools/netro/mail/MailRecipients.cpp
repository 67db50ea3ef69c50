// The addresses that header text names, as SendMailCls reads it.

#include "mail/MailRecipients.h"

namespace netro::tool {

std::vector<RecipientOutcome> RecipientsOf(const std::string& to, const std::string& cc,
                                           const std::string& bcc) {
  SendMailCls mail;
  // Without a sender nothing is sent, but every recipient gets an outcome.
  mail.NewTextMsg({}, {}, to, {}, cc, bcc);
  mail.SendMail();
  return mail.Outcomes();
}

}  // namespace netro::tool
