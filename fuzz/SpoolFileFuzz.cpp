// Reads a spool file: its head, and behind the text its records. What was read must be the same
// when it is written and read again, and what was decided must stay so, wherever the file was cut.

#include "fuzz/Fuzz.h"
#include "mail/BounceMessage.h"
#include "mail/SpoolFile.h"
#include "support/Text.h"

namespace {

void CheckHead(const netro::SpooledMail& mail) {
  netro::SpooledMail again;
  std::size_t messageAt = 0;
  const std::string head = netro::SpoolHead(mail);
  Require(netro::ParseSpoolHead(head, again, messageAt) == netro::SpoolHeadEnd::Good);
  Require(messageAt == head.size() && netro::SpoolHead(again) == head);
  Require(netro::ParseSpoolHead(head.substr(0, head.size() - 1), again, messageAt) ==
          netro::SpoolHeadEnd::Cut);
}

void CheckRecord(const netro::SpooledRecipient& recipient) {
  if (recipient.Tries == 0) return;
  const std::string record = netro::SpoolRecord(recipient, 0);
  Require(record.size() <= netro::kMostSpoolRecord && record.find('\n') == record.size() - 1);
  netro::SpooledMail mail;
  mail.Recipients.emplace_back();
  std::size_t whole = 0;
  Require(netro::ApplySpoolRecords(record, mail, whole) && whole == record.size());
  Require(netro::SpoolRecord(mail.Recipients[0], 0) == record);
  // A second record may follow only where nothing was decided.
  Require(netro::ApplySpoolRecords(record, mail, whole) ==
          (recipient.State == netro::SpoolPending));
}

void CheckBounce(const netro::SpooledMail& mail, std::string_view message) {
  const std::string bounce =
      netro::ComposeBounce(mail, {0}, {"mx.test", 46000, "b0undary", message});
  for (std::size_t at = 0; (at = bounce.find('\n', at)) != bounce.npos; ++at) {
    Require(at > 0 && bounce[at - 1] == '\r');
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string file(data, data + size);
  netro::SpooledMail mail;
  std::size_t messageAt = 0;
  Require(!netro::HasControlCharacter(netro::CleanAnswer(file)));
  if (netro::ParseSpoolHead(file, mail, messageAt) != netro::SpoolHeadEnd::Good) return 0;
  Require(messageAt <= file.size());
  CheckHead(mail);
  if (mail.Size > file.size() - messageAt) return 0;
  const std::string_view records =
      std::string_view(file).substr(messageAt + static_cast<std::size_t>(mail.Size));
  std::size_t whole = 0;
  const bool good = netro::ApplySpoolRecords(records, mail, whole);
  Require(whole <= records.size());
  if (!good) return 0;
  for (const netro::SpooledRecipient& recipient : mail.Recipients) CheckRecord(recipient);
  CheckBounce(mail, std::string_view(file).substr(messageAt));
  return 0;
}
