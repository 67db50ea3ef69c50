// SendMailCls: composing. Files, sending and the address checks have files of their own.
#include <netro/Localization.h>
#include <netro/SendMailCls.h>

#include <exception>

#include "mail/HeaderBlock.h"
#include "mail/MailDelivery.h"
#include "mail/MimeMessage.h"
#include "platform/CallState.h"
#include "platform/ErrorNumbers.h"
#include "socket/SocketErrors.h"
#include "socket/SocketModule.h"

namespace netro {
namespace {

using Kind = MimeMessage::Kind;

constexpr std::int32_t kTextNotMime = 4003;

/// 0, or the number for missing memory.
template <typename Work>
std::int32_t Try(const Work& work) {
  try {
    work();
    return 0;
  } catch (const std::exception&) {
    return kErrNoBuffers;
  }
}

std::string_view TextOf(const Bytes& bytes) {
  return {reinterpret_cast<const char*>(bytes.data()), bytes.size()};
}

}  // namespace

SendMailCls::SendMailCls()
    : module_(SocketModule::ForThread()),
      call_(std::make_shared<CallState>()),
      message_(std::make_unique<MimeMessage>()) {
  Extensions(true);
  StrictLines(true);
}

SendMailCls::~SendMailCls() { call_->Die(); }

bool SendMailCls::SetResult(std::int32_t result, std::string message) {
  result_ = result;
  resultMessage_ = std::move(message);
  return result == 0;
}

// Of composing, which meets nothing but missing memory.
bool SendMailCls::SetResult(std::int32_t result) {
  return SetResult(result, result == 0 ? std::string() : SocketErrorText(result));
}

bool SendMailCls::NewTextMsg(const std::string& MsgSubject, const std::string& MsgFrom,
                             const std::string& MsgTo, const std::string& MsgText,
                             const std::string& MsgCC, const std::string& MsgBCC) {
  const LoopUse::Scope use(call_->use);
  if (use.Refused()) return false;
  return SetResult(Try([&] {
    message_->Begin(Kind::Text, {MsgSubject, MsgFrom, MsgTo, MsgCC, MsgBCC}, MsgText, {});
  }));
}

bool SendMailCls::NewHTMLMsg(const std::string& MsgSubject, const std::string& MsgFrom,
                             const std::string& MsgTo, const std::string& MsgText,
                             const std::string& MsgCC, const std::string& MsgBCC) {
  return NewHTMLMsgX(MsgSubject, MsgFrom, MsgTo, MsgText, {}, MsgCC, MsgBCC);
}

bool SendMailCls::NewHTMLMsgX(const std::string& MsgSubject, const std::string& MsgFrom,
                              const std::string& MsgTo, const std::string& MsgText,
                              const std::string& MsgAlternativeText, const std::string& MsgCC,
                              const std::string& MsgBCC) {
  const LoopUse::Scope use(call_->use);
  if (use.Refused()) return false;
  return SetResult(Try([&] {
    message_->Begin(Kind::Html, {MsgSubject, MsgFrom, MsgTo, MsgCC, MsgBCC}, MsgText,
                    MsgAlternativeText);
  }));
}

bool SendMailCls::NewMsgFromMimeBuffer(const std::string& MimeBuffer, const std::string& MsgFrom,
                                       const std::string& MsgTo, const std::string& MsgCC,
                                       const std::string& MsgBCC) {
  const LoopUse::Scope use(call_->use);
  if (use.Refused()) return false;
  if (!HasHeaderBlock(MimeBuffer)) return SetResult(kTextNotMime, GetMessageText(kTextNotMime));
  return SetResult(Try([&] {
    message_->BeginFinished({{}, MsgFrom, MsgTo, MsgCC, MsgBCC},
                            std::make_shared<const std::string>(MimeBuffer));
  }));
}

bool SendMailCls::AddHeader(const std::string& Title, const std::string& Value) {
  const LoopUse::Scope use(call_->use);
  if (use.Refused()) return false;
  if (!MayAdd()) return false;
  if (!MayAddHeader(Title)) {
    return SetResult(kErrInvalidArgument,
                     "Title is no field name, or that of a field that the message is built by.");
  }
  if (message_->HasHeader(Title)) {
    return SetResult(kErrInvalidArgument, Title + " may stand only once, and the message has it.");
  }
  return SetResult(Try([&] { message_->AddHeader(Title, Value); }));
}

bool SendMailCls::MayAdd() {
  if (message_->KindOfMessage() != Kind::Finished) return true;
  return SetResult(kErrInvalidArgument, "Nothing can be added to a finished message.");
}

bool SendMailCls::AddBytes(std::string_view bytes, const std::string& name, bool related) {
  const LoopUse::Scope use(call_->use);
  if (use.Refused()) return false;
  if (!MayAdd()) return false;
  return SetResult(Try([&] {
    message_->AddFile(HoldBytes(std::make_shared<const std::string>(bytes)), name, related);
  }));
}

bool SendMailCls::AddAttachment(const std::string& Filename) {
  return AddFile(Filename, {}, false);
}

bool SendMailCls::AddAttachmentX(const std::string& Filename, const std::string& NameInMime) {
  return AddFile(Filename, NameInMime, false);
}

bool SendMailCls::AddAttachmentFromBuffer(const std::string& buffer,
                                          const std::string& NameInMime) {
  return AddBytes(buffer, NameInMime, false);
}

bool SendMailCls::AddAttachmentFromByteArray(const Bytes& ByteArray,
                                             const std::string& NameInMime) {
  return AddBytes(TextOf(ByteArray), NameInMime, false);
}

bool SendMailCls::AddRelatedFile(const std::string& Filename) {
  return AddFile(Filename, {}, true);
}

bool SendMailCls::AddRelatedFileX(const std::string& Filename, const std::string& NameInMime) {
  return AddFile(Filename, NameInMime, true);
}

bool SendMailCls::AddRelatedFileFromBuffer(const std::string& buffer,
                                           const std::string& NameInMime) {
  return AddBytes(buffer, NameInMime, true);
}

bool SendMailCls::AddRelatedFileFromByteArray(const Bytes& ByteArr, const std::string& NameInMime) {
  return AddBytes(TextOf(ByteArr), NameInMime, true);
}

const std::string& SendMailCls::CharSet() const { return message_->CharSet(); }
void SendMailCls::CharSet(std::string value) { message_->CharSet(std::move(value)); }

bool SendMailCls::AddBCCToMime() const { return message_->AddBcc(); }
void SendMailCls::AddBCCToMime(bool value) { message_->AddBcc(value); }

void SendMailCls::MsgDate(Date value) { message_->MsgDate(value); }

const std::string& SendMailCls::MessageID() const { return message_->MessageID(); }
void SendMailCls::MessageID(std::string value) { message_->MessageID(std::move(value)); }

const std::string& SendMailCls::MimeBuffer() const {
  static const std::string none;
  const LoopUse::Scope use(call_->use);
  if (use.Refused()) return none;
  const std::string* text = &none;
  Try([&] { text = &message_->Text(); });
  return *text;
}

std::uint64_t SendMailCls::MessageSize() const {
  const LoopUse::Scope use(call_->use);
  if (use.Refused()) return 0;
  std::uint64_t size = 0;
  Try([&] { size = message_->Size(); });
  return size;
}

}  // namespace netro
