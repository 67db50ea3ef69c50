// How a transaction runs: its envelope (SmtpTransaction.cpp) and its message
// (SmtpTransactionData.cpp). On the stack of RunTransaction.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "mail/SmtpParameters.h"
#include "mail/SmtpTransaction.h"
#include "support/Utf8.h"

namespace netro {

class SmtpTransaction {
 public:
  SmtpTransaction(SmtpDialogue& dialogue, const std::string& from, SmtpData& message,
              const std::vector<SmtpRecipient*>& recipients)
      : dialogue_(dialogue),
        settings_(dialogue.settings),
        offered_(dialogue.extensions),
        from_(from),
        message_(message),
        recipients_(recipients) {}

  bool Run();

 private:
  bool RefuseForeign();
  bool RefuseSize(std::size_t size);

  // The envelope.

  bool Envelope();
  bool EnvelopeAtOnce();
  void TakeReply(SmtpRecipient& recipient, std::int32_t code, const std::string& text);
  bool FailOrder();
  bool NobodyTaken();
  void Pass(SmtpRecipient::State from, SmtpRecipient::State to);

  // The message with the envelope.

  bool FitsChunk() const;
  bool AppendChunk(std::string& commands);
  bool SendTogether(const std::string& commands);
  void SettleChunk();

  // The message by itself.

  bool Message();
  bool SendBlocks();
  bool FailData();
  void TellProgress(std::size_t sent, std::size_t total) const;
  void ShowMessage(std::size_t size);
  void Settle(SmtpRecipient::State state);

  std::string MailCommand() const;
  std::string RcptCommand(const SmtpRecipient& recipient) const {
    return netro::RcptCommand(recipient.address, offered_, settings_.options);
  }
  bool NeedsUtf8(std::string_view address) const {
    return settings_.options.extensions && !IsAscii(address);
  }
  std::size_t Count(SmtpRecipient::State state) const {
    return static_cast<std::size_t>(std::ranges::count_if(
        recipients_, [state](const SmtpRecipient* recipient) { return recipient->state == state; }));
  }

  SmtpDialogue& dialogue_;
  const SMTPValues& settings_;
  const SmtpExtensions& offered_;
  const std::string& from_;
  SmtpData& message_;
  const std::vector<SmtpRecipient*>& recipients_;
  std::size_t size_ = 0;  // of the message
  bool chunked_ = false;  // it goes with the envelope
  bool atLast_ = false;   // its reply is awaited
};

}  // namespace netro
