// The message of a transaction: with its envelope in one chunk, or by itself in blocks.
#include "mail/SmtpTransactionRun.h"

#include <netro/Localization.h>

#include <limits>

#include "platform/ErrorNumbers.h"
#include "support/OnException.h"

namespace netro {
namespace {

using State = SmtpRecipient::State;

constexpr std::int32_t kTextSendingLine = 7005;
constexpr std::int32_t kTooManyRecipients = 452;
constexpr std::size_t kPiece = 4096;
// As many pieces as loopback takes in one segment; for sessions whose progress nobody watches.
constexpr std::size_t kBlock = 15 * kPiece;

}  // namespace

// Who watches the progress gets it in its usual pieces. A session that has idled is tried by its
// envelope first: when it turns out to be gone, nobody must wonder whether the message arrived.
bool SmtpTransaction::FitsChunk() const {
  const auto& watched = dialogue_.events.watched;
  return settings_.options.chunking && offered_.chunking && !dialogue_.idled &&
         message_.Size() <= (watched && watched() ? kPiece : kBlock);
}

bool SmtpTransaction::AppendChunk(std::string& commands) {
  std::string text;
  if (!message_.AppendPlain(text)) return FailData();
  const std::string command = "BDAT " + std::to_string(text.size()) + " LAST";
  dialogue_.ShowCommand(command);
  ShowMessage(text.size());
  commands.append(command).append("\r\n").append(text);
  size_ = text.size();
  return true;
}

bool SmtpTransaction::SendTogether(const std::string& commands) {
  if (!chunked_) return dialogue_.Send(SMTP_STEP_MAILFROM, commands);
  if (dialogue_.Mark().Cancelled()) return dialogue_.FailWait(SMTP_STEP_MAILFROM, kErrCancelled);
  // Who cancels does not learn how much of it went.
  dialogue_.result->endUnknown = true;
  if (!dialogue_.Send(SMTP_STEP_SENDDATA, commands)) return false;
  TellProgress(size_, size_);
  return true;
}

// The recipients as the replies leave them: those to the commands before that of the message say
// nothing of it.
void SmtpTransaction::SettleChunk() {
  SmtpResult& result = *dialogue_.result;
  const bool replied = atLast_ && dialogue_.connection.Code() != 0;
  const bool accepted =
      replied && dialogue_.Accept(SMTP_STEP_SENDDATA, dialogue_.connection.Code());
  for (SmtpRecipient* const recipient : recipients_) {
    const bool mayHaveIt = recipient->state == State::Waiting && result.endUnknown;
    if (mayHaveIt) recipient->state = State::Taken;
    if (recipient->state == State::Taken && !replied && !result.endUnknown)
      recipient->state = State::Waiting;
  }
  Settle(accepted ? State::Delivered : result.endUnknown ? State::Unknown : State::Refused);
}

// What the server has taken is delivered, also when the event that shows its reply throws.
bool SmtpTransaction::Message() {
  dialogue_.connection.BeginReply();
  const OnException settle([this] {
    if (dialogue_.Accept(SMTP_STEP_SENDDATA, dialogue_.connection.Code())) {
      Settle(State::Delivered);
    } else if (dialogue_.result->endUnknown) {
      Settle(State::Unknown);
    }
  });
  bool done = !dialogue_.Mark().Cancelled();
  if (done) {
    ShowMessage(message_.Size());
    message_.Rewind();
    done = SendBlocks() &&
           dialogue_.Await(SMTP_STEP_SENDDATA, dialogue_.Deadline(SMTP_STEP_SENDDATA));
  } else {
    dialogue_.FailWait(SMTP_STEP_SENDDATA, kErrCancelled);
  }
  Settle(done                           ? State::Delivered
         : dialogue_.result->endUnknown ? State::Unknown
                                        : State::Refused);
  return done;
}

// A server that is gone gets no more; its reply may be there already.
bool SmtpTransaction::SendBlocks() {
  const auto& watched = dialogue_.events.watched;
  std::size_t sent = 0;
  while (sent < message_.Size() && dialogue_.connection.Failure() == 0) {
    if (dialogue_.Mark().Cancelled())
      return dialogue_.FailWait(SMTP_STEP_SENDDATA, kErrCancelled);
    const std::string_view block = message_.Next(watched && watched() ? kPiece : kBlock);
    if (block.empty()) return FailData();
    // Who cancels does not learn how much of the block went.
    const bool isLast = sent + block.size() == message_.Size();
    if (isLast) dialogue_.result->endUnknown = true;
    if (!dialogue_.Send(SMTP_STEP_SENDDATA, block)) return false;
    if (dialogue_.connection.IsReset()) {
      dialogue_.result->endUnknown = false;
      break;
    }
    sent += block.size();
    TellProgress(sent, message_.Size());
  }
  return true;
}

// The server must not take what was sent for the whole message.
bool SmtpTransaction::FailData() {
  return dialogue_.FailText(SMTP_STEP_SENDDATA, message_.Error(), message_.ErrorText());
}

void SmtpTransaction::TellProgress(std::size_t sent, std::size_t total) const {
  if (!dialogue_.events.data || dialogue_.Mark().Cancelled()) return;
  constexpr std::size_t kMost = std::numeric_limits<std::int32_t>::max();
  dialogue_.events.data(static_cast<std::int32_t>(std::min(sent, kMost)),
                        static_cast<std::int32_t>(std::min(total, kMost)));
}

void SmtpTransaction::ShowMessage(std::size_t size) {
  if (dialogue_.transcript.HasWholeMessage()) {
    message_.Rewind();
    dialogue_.ShowCommand(WithoutLineEnd(message_.Next(size)));
  } else if (!dialogue_.transcript.IsOff()) {
    dialogue_.transcript.Add(
        GetMessageText(kTextSendingLine, {settings_.senderHostName, std::to_string(size)}));
  }
}

void SmtpTransaction::Settle(State state) {
  const SmtpResult& result = *dialogue_.result;
  for (SmtpRecipient* const recipient : recipients_) {
    if (recipient->state == State::Taken) {
      NoteState(*recipient, state, result.stepID, result.result, result.resultMessage);
      if (state == State::Delivered) recipient->enhanced = EnhancedStatus(dialogue_.ReplyText());
    } else if (recipient->state == State::Refused && state == State::Delivered) {
      recipient->tooMany = recipient->result == kTooManyRecipients;
    }
  }
}

}  // namespace netro
