// A message being composed: what it consists of, and the MIME text made of that. Owned by a
// SendMailCls; nothing here waits. Thread: any, one at a time.
#pragma once

#include <netro/Types.h>

#include <memory>
#include <string>
#include <string_view>

#include "mail/MimeComposer.h"

namespace netro {

/// What goes to the recipients: without Bcc fields unless they are wanted, lines ended by CR LF,
/// and without the last CR LF, since a session adds one. It stays as it is whatever becomes of the
/// message, as long as `owner` is held.
struct TextForDelivery {
  std::shared_ptr<const std::string> owner;
  std::string_view text;
};

class MimeMessage {
 public:
  enum class Kind { None, Text, Html, Finished };

  using Envelope = MimeEnvelope;

  MimeMessage();

  /// Begins a message; see SendMailCls about what was added before. The text of a finished one has
  /// a header block, see HasHeaderBlock.
  void Begin(Kind kind, Envelope envelope, std::string text, std::string alternative);
  Kind KindOfMessage() const { return kind_; }
  const Envelope& Addresses() const { return content_.envelope; }

  /// True when another field of this name would be one too many.
  bool HasHeader(const std::string& title) const;
  /// `title` is a field name that a message may have besides its usual ones, see MayAddHeader.
  void AddHeader(const std::string& title, const std::string& value);
  void AddFile(std::string bytes, const std::string& name, bool related);

  const std::string& CharSet() const { return content_.charSet; }
  void CharSet(std::string value);
  bool AddBcc() const { return content_.addBcc; }
  void AddBcc(bool value);
  void MsgDate(Date value);
  const std::string& MessageID() const { return content_.messageID; }
  void MessageID(std::string value);

  /// The composed text, made when it was changed since the last call.
  const std::string& Text();
  TextForDelivery TextToSend();

 private:
  void Changed();

  Kind kind_ = Kind::None;
  MimeContent content_;
  std::shared_ptr<const std::string> text_;  // null: to be made
};

/// False for what is no field name, and for the fields that tell how the message is built.
bool MayAddHeader(const std::string& title);

}  // namespace netro
