#include "mail/SmtpTransaction.h"

#include "mail/SmtpTables.h"
#include "mail/SmtpTransactionRun.h"
#include "platform/ErrorNumbers.h"
#include "support/OnException.h"

namespace netro {
namespace {

using State = SmtpRecipient::State;

constexpr std::int32_t kTooLarge = 552;
constexpr std::int32_t kNameNotAllowed = 553;
constexpr std::int32_t kGoAhead = 354;

}  // namespace

bool SmtpTransaction::Run() {
  if (offered_.size && !settings_.simulation) size_ = message_.Size();
  if (!RefuseForeign() || !RefuseSize(size_)) return false;
  const bool atOnce = offered_.pipelining && !settings_.simulation;
  chunked_ = atOnce && FitsChunk();
  if (chunked_) {
    const OnException settle([this] { SettleChunk(); });
    const bool good = EnvelopeAtOnce();
    SettleChunk();
    return good;
  }
  if (atOnce ? !EnvelopeAtOnce() : !Envelope()) {
    Pass(State::Taken, State::Waiting);
    return false;
  }
  if (!settings_.simulation) return Message();
  Pass(State::Taken, State::Delivered);
  return true;
}

void SmtpTransaction::Pass(State from, State to) {
  for (SmtpRecipient* const recipient : recipients_) {
    if (recipient->state == from) recipient->state = to;
  }
}

// Only those are refused that the server cannot be told of (RFC 6531, section 3.2).
bool SmtpTransaction::RefuseForeign() {
  constexpr std::string_view kWhy =
      " has characters beyond ASCII, which the server does not take (SMTPUTF8).";
  if (offered_.smtpUtf8) return true;
  if (NeedsUtf8(from_)) {
    return dialogue_.FailText(SMTP_STEP_MAILFROM, kNameNotAllowed,
                              "The sender's address " + from_ + std::string(kWhy));
  }
  for (SmtpRecipient* const recipient : recipients_) {
    if (!NeedsUtf8(recipient->address)) continue;
    NoteState(*recipient, State::Refused, SMTP_STEP_RCPTTO, kNameNotAllowed,
         "The address " + recipient->address + std::string(kWhy));
  }
  return Count(State::Waiting) > 0 || NobodyTaken();
}

// A recipient's address that the server limits is another matter; this is about all of them.
bool SmtpTransaction::RefuseSize(std::size_t size) {
  if (offered_.largest == 0 || size <= offered_.largest) return true;
  return dialogue_.FailText(SMTP_STEP_MAILFROM, kTooLarge,
                            "The message has " + std::to_string(size) +
                                " bytes, and the server takes " +
                                std::to_string(offered_.largest) + " (SIZE).");
}

std::string SmtpTransaction::MailCommand() const {
  SmtpFacts facts = message_.Facts();
  facts.size = size_;
  const bool foreign = std::ranges::any_of(recipients_, [](const SmtpRecipient* recipient) {
    return !IsAscii(recipient->address);
  });
  return netro::MailCommand(from_, facts, foreign, offered_, settings_.options);
}

void SmtpTransaction::TakeReply(SmtpRecipient& recipient, std::int32_t code, const std::string& text) {
  if (dialogue_.Accept(SMTP_STEP_RCPTTO, code)) {
    recipient.state = State::Taken;
    return;
  }
  NoteState(recipient, State::Refused, SMTP_STEP_RCPTTO, code, text);
}

bool SmtpTransaction::Envelope() {
  const std::int32_t last = settings_.options.lastStep;
  const bool says = last >= SMTP_STEP_MAILFROM;
  if (says && !dialogue_.Command(SMTP_STEP_MAILFROM, MailCommand())) return false;
  if (last <= SMTP_STEP_MAILFROM) {
    Pass(State::Waiting, State::Taken);
    return true;
  }
  for (SmtpRecipient* const recipient : recipients_) {
    if (recipient->state != State::Waiting) continue;
    const std::int32_t code = dialogue_.Ask(SMTP_STEP_RCPTTO, RcptCommand(*recipient));
    if (code == 0) return false;
    TakeReply(*recipient, code, dialogue_.result->lastBuffer);
  }
  if (Count(State::Taken) == 0) return NobodyTaken();
  if (Count(State::Refused) > 0) dialogue_.transcript.Release();
  return settings_.simulation || dialogue_.Command(SMTP_STEP_DATA, "DATA");
}

bool SmtpTransaction::EnvelopeAtOnce() {
  std::string commands;
  const auto add = [&](const std::string& command) {
    dialogue_.ShowCommand(command);
    commands += command + "\r\n";
  };
  dialogue_.connection.BeginReply();
  add(MailCommand());
  for (const SmtpRecipient* const recipient : recipients_) {
    if (recipient->state == State::Waiting) add(RcptCommand(*recipient));
  }
  if (chunked_) {
    if (!AppendChunk(commands)) return false;
  } else {
    add("DATA");
  }
  if (!SendTogether(commands)) return false;

  std::int32_t step = SMTP_STEP_MAILFROM;
  // The server may keep all replies until it has the message, so that is what is waited for.
  const auto await = [&] {
    const std::int32_t awaited = chunked_ ? SMTP_STEP_SENDDATA : step;
    dialogue_.result->endUnknown = chunked_ && !dialogue_.connection.IsReset();
    return dialogue_.AwaitCode(awaited, dialogue_.Deadline(awaited));
  };
  const auto next = [&] {
    dialogue_.connection.NextReply();
    return await();
  };
  std::int32_t code = await();
  if (code == 0) return false;
  if (!dialogue_.Accept(step, code)) return dialogue_.Fail(step, code, dialogue_.ReplyText());
  step = SMTP_STEP_RCPTTO;
  for (SmtpRecipient* const recipient : recipients_) {
    if (recipient->state != State::Waiting) continue;
    if ((code = next()) == 0) return false;
    if (!IsDecision(code)) return FailOrder();
    TakeReply(*recipient, code, dialogue_.ReplyText());
  }
  step = chunked_ ? SMTP_STEP_SENDDATA : SMTP_STEP_DATA;
  atLast_ = true;
  if ((code = next()) == 0) return false;
  const bool tooEarly = code == kGoAhead ? dialogue_.connection.Reply().HasMore()
                                         : IsDecision(code) && code < 400;
  if (!chunked_ && tooEarly) return FailOrder();
  if (Count(State::Taken) == 0) {
    // RFC 2920, section 3.1: the server may wait for a message all the same.
    if (!chunked_ && code == kGoAhead && dialogue_.Ask(SMTP_STEP_DATA, ".") == 0) return false;
    return NobodyTaken();
  }
  if (Count(State::Refused) > 0) dialogue_.transcript.Release();
  return dialogue_.Accept(step, code) || dialogue_.Fail(step, code, dialogue_.ReplyText());
}

// A server that has said more than it was asked: its replies may be those to other commands, and
// nobody knows which recipients it has refused.
bool SmtpTransaction::FailOrder() {
  for (SmtpRecipient* const recipient : recipients_) recipient->state = State::Waiting;
  return dialogue_.FailText(SMTP_STEP_DATA, kErrProtocolNotSupported,
                            "The server's replies do not belong to the commands.");
}

// The session fails as its last recipient did.
bool SmtpTransaction::NobodyTaken() {
  const SmtpRecipient& last = *recipients_.back();
  dialogue_.result->lastBuffer = last.message;
  return dialogue_.Fail(last.stepID, last.result, last.message);
}

void NoteState(SmtpRecipient& recipient, State state, std::int32_t step, std::int32_t result,
               const std::string& text) {
  recipient.state = state;
  recipient.stepID = step;
  recipient.result = result;
  recipient.message = text;
  recipient.enhanced = EnhancedStatus(text);
}

bool RunTransaction(SmtpDialogue& dialogue, const std::string& from, SmtpData& message,
                    const std::vector<SmtpRecipient*>& recipients) {
  return SmtpTransaction(dialogue, from, message, recipients).Run();
}

}  // namespace netro
