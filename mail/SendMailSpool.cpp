// Putting a composed message into a spool folder, from where MailSpool delivers it.
#include <netro/Localization.h>

#include <memory>
#include <string>
#include <utility>

#include "mail/MailCall.h"
#include "mail/MimeMessage.h"
#include "mail/SpoolFile.h"
#include "mail/SpoolFolder.h"
#include "platform/Clock.h"
#include "platform/WholeFile.h"

namespace netro {
namespace {

constexpr std::int32_t kTextNoRecipient = 4001;
constexpr std::int32_t kTextNoMessage = 4003;
constexpr std::int32_t kTextBadRecipient = 4007;
constexpr std::int32_t kTextBadSender = 4008;

}  // namespace

bool SendMailCls::SpoolMsg(const std::string& Folder) {
  return MailCall::Run(*this, [&](MailCall& call) { return call.Spool(Folder); });
}

bool MailCall::Spool(const std::string& folder) {
  if (owner_.message_->KindOfMessage() == MimeMessage::Kind::None)
    return Fail(kTextNoMessage, GetMessageText(kTextNoMessage));
  SpooledMail mail;
  if (!FillEnvelope(mail)) return false;
  mail.Created = WallClock();
  mail.Id = NewSpoolId(mail.Created);
  std::string id = mail.Id;  // once the message is in the folder nothing may fail
  const std::unique_ptr<ByteSource> text = owner_.message_->TextToSend();
  std::int32_t error = CreateFolder(folder);
  if (error == 0) error = PutIntoSpool(folder, mail, *text);
  if (error != 0) {
    const std::string fault = text->ErrorText();  // of a file that is attached
    return Fail(error, fault.empty() ? SpoolErrorText(error, folder) : fault);
  }
  owner_.spoolID_ = std::move(id);
  return owner_.SetResult(0, {});
}

/// All addresses must be good: nobody would be told of one that is not.
bool MailCall::FillEnvelope(SpooledMail& mail) {
  const std::string fault = SenderFault();
  if (!fault.empty()) return Fail(SMTP_INITERROR, fault);
  mail.Sender = Sender();
  if (!mail.Sender.empty() && !CanSpoolAddress(mail.Sender))
    return Fail(SMTP_INITERROR, GetMessageText(kTextBadSender, {CleanAnswer(mail.Sender)}));
  for (RecipientOutcome& recipient : Recipients()) {
    const bool good = recipient.StepID != SMTP_STEP_PRECHECK && CanSpoolAddress(recipient.Address);
    if (!good) {
      const std::string shown = CleanAnswer(recipient.Address);
      return Fail(SMTP_INITERROR, GetMessageText(kTextBadRecipient, {shown}));
    }
    mail.Recipients.emplace_back().Address = std::move(recipient.Address);
  }
  return !mail.Recipients.empty() || Fail(kTextNoRecipient, GetMessageText(kTextNoRecipient));
}

}  // namespace netro
