// SendMailCls: the files that a message is made of, read from, or written to.
#include <netro/Localization.h>
#include <netro/SendMailCls.h>

#include <cerrno>
#include <exception>
#include <span>
#include <utility>

#include "mail/HeaderBlock.h"
#include "mail/MimeMessage.h"
#include "platform/CallState.h"
#include "platform/ErrorNumbers.h"
#include "platform/Folder.h"
#include "platform/OutputFile.h"
#include "platform/WholeFile.h"
#include "socket/SocketErrors.h"

namespace netro {
namespace {

constexpr std::int32_t kTextNotMime = 4003;
constexpr std::int32_t kTextNotPrepared = 4006;
constexpr std::uint64_t kLargestFile = std::uint64_t{1} << 30;

/// What the file has at its front, cut behind a line unless it is all of it.
std::int32_t ReadFront(const MimeBytes& file, std::string& front) {
  constexpr std::size_t kMost = 65536;
  const auto source = file.open();
  front.resize(kMost);
  std::size_t used = 0;
  for (std::size_t got = 1; got > 0 && used < kMost; used += got) {
    const std::span room(reinterpret_cast<std::uint8_t*>(front.data()) + used, kMost - used);
    if (const std::int32_t error = source->Read(room, got)) return error;
  }
  front.resize(used < file.size ? front.find_last_of("\r\n", used - 1) + 1 : used);
  return 0;
}

}  // namespace

bool SendMailCls::FailFile(std::int32_t error) {
  return SetResult(error, GetMessageText(kTextNotPrepared, {SystemErrorText(error)}));
}

bool SendMailCls::NewMsgFromMimeFile(const std::string& Filename, const std::string& MsgFrom,
                                     const std::string& MsgTo, const std::string& MsgCC,
                                     const std::string& MsgBCC) try {
  const LoopUse::Scope use(call_->use);
  if (use.Refused()) return false;
  MimeBytes message;
  std::string front;
  if (const std::int32_t error = FindFile(Filename, message)) return FailFile(error);
  if (const std::int32_t error = ReadFront(message, front)) return FailFile(error);
  if (!HasHeaderBlock(front)) return SetResult(kTextNotMime, GetMessageText(kTextNotMime));
  message_->BeginFinished({{}, MsgFrom, MsgTo, MsgCC, MsgBCC}, std::move(message));
  return SetResult(0);
} catch (const std::exception&) {
  return SetResult(kErrNoBuffers);
}

bool SendMailCls::AddFile(const std::string& filename, const std::string& name, bool related) try {
  const LoopUse::Scope use(call_->use);
  if (use.Refused()) return false;
  if (!MayAdd()) return false;
  MimeBytes bytes;
  if (const std::int32_t error = FindFile(filename, bytes)) return FailFile(error);
  if (bytes.size > kLargestFile) return FailFile(FileErrorNumber(EFBIG));
  const std::string ownName = filename.substr(OwnNameAt(filename));
  message_->AddFile(std::move(bytes), name.empty() ? ownName : name, related);
  return SetResult(0);
} catch (const std::exception&) {
  return SetResult(kErrNoBuffers);
}

std::unique_ptr<ByteSource> SendMailCls::OpenMessage() try {
  if (message_->KindOfMessage() != MimeMessage::Kind::None) return message_->TextToSend();
  SetResult(kTextNotMime, GetMessageText(kTextNotMime));
  return nullptr;
} catch (const std::exception&) {
  SetResult(kErrNoBuffers);
  return nullptr;
}

bool SendMailCls::WriteMessage(const std::function<bool(std::string_view)>& Write) {
  const LoopUse::Scope use(call_->use);
  if (use.Refused()) return false;
  if (!Write) return SetResult(kErrInvalidArgument, "Write is no function.");
  const std::unique_ptr<ByteSource> text = OpenMessage();
  if (text == nullptr) return false;
  const auto call = call_;
  const std::int32_t error = CopyAll(*text, [&](std::span<const std::uint8_t> block) {
    const bool goesOn = Write({reinterpret_cast<const char*>(block.data()), block.size()});
    return goesOn && call->alive ? 0 : kErrCancelled;
  });
  if (!call->alive) return false;
  const std::string fault = text->ErrorText();
  return fault.empty() ? SetResult(error) : SetResult(error, fault);
}

bool SendMailCls::SaveMessage(const std::string& Filename) {
  const LoopUse::Scope use(call_->use);
  if (use.Refused()) return false;
  const std::unique_ptr<ByteSource> text = OpenMessage();
  if (text == nullptr) return false;
  const std::int32_t error = ReplaceFile(Filename, [&](OutputFile& file) {
    return CopyAll(*text, [&file](std::span<const std::uint8_t> block) { return file.Write(block); });
  });
  if (error == 0) return SetResult(0);
  const std::string fault = text->ErrorText();
  return SetResult(error, fault.empty() ? "The file " + Filename +
                                              " cannot be written: " + SystemErrorText(error)
                                        : fault);
}

}  // namespace netro
