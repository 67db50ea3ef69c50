// A message being composed: what it consists of, and the MIME text made of that. Owned by a
// SendMailCls; nothing here waits. Thread: any, one at a time.
#pragma once

#include <netro/Types.h>

#include <memory>
#include <string>
#include <string_view>

#include "mail/MimeComposer.h"
#include "mail/SmtpData.h"

namespace netro {

class MimeMessage {
 public:
  enum class Kind { None, Text, Html, Finished };

  using Envelope = MimeEnvelope;

  MimeMessage();

  /// Begins a message; see SendMailCls about what was added before.
  void Begin(Kind kind, Envelope envelope, std::string text, std::string alternative);
  /// The same with a finished one, which has a header block, see HasHeaderBlock.
  void BeginFinished(Envelope envelope, std::shared_ptr<const std::string> message);
  void BeginFinished(Envelope envelope, MimeBytes message);
  Kind KindOfMessage() const { return kind_; }
  const Envelope& Addresses() const { return content_.envelope; }

  /// True when another field of this name would be one too many.
  bool HasHeader(const std::string& title) const;
  /// `title` is a field name that a message may have besides its usual ones, see MayAddHeader.
  void AddHeader(const std::string& title, const std::string& value);
  void AddFile(MimeBytes bytes, const std::string& name, bool related);

  const std::string& CharSet() const { return content_.charSet; }
  void CharSet(std::string value);
  bool AddBcc() const { return content_.addBcc; }
  void AddBcc(bool value);
  void MsgDate(Date value);
  const std::string& MessageID() const { return content_.messageID; }
  void MessageID(std::string value);

  /// The message in one text, made when it was changed since the last call; of a finished one as it
  /// was given. Empty when a file can no longer be read.
  const std::string& Text();
  /// Its length.
  std::uint64_t Size();
  /// What goes to the recipients: without Bcc fields unless they are wanted, lines ended by CR LF.
  /// It stays as it is whatever becomes of the message.
  std::unique_ptr<ByteSource> TextToSend();
  /// The same for a session; see its Error.
  std::unique_ptr<SmtpData> DataToSend(DotRule rule);

 private:
  void StartOver(Envelope envelope);
  void Changed();
  const MimeText& Composed();

  Kind kind_ = Kind::None;
  MimeContent content_;
  MimeBytes finished_;
  std::shared_ptr<const MimeText> composed_;  // null: to be made
  std::shared_ptr<const std::string> text_;   // null: to be made
};

/// False for what is no field name, and for the fields that tell how the message is built.
bool MayAddHeader(const std::string& title);

}  // namespace netro
