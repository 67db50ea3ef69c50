// SendMailCls: composes a message of text, HTML, attachments and inline files (RFC 2045, 2046,
// 2047, 2183, 2231, 5322), checks mail addresses, finds the mail exchangers of domains, and sends
// the message to each of its recipients.
//
// All texts are UTF-8; text that is not is taken as being in CharSet, and else in ISO-8859-1.
// Control characters in what becomes a header field count as blanks. Methods that return false
// leave the reason in Result and ResultMessage and have changed nothing. When composing that is
// 10022 for a wrong argument, 4003 for a text that is no message, 10055 for missing memory, and
// 20000 plus the system's number for a file that cannot be read.
//
// Thread: as SocketCls; only Kill and StopWaiting may come from any thread, or from a signal
// handler. SendMail, CheckeMailAddress, the gateway lookups and GetMailAdminForeMail block, keeping
// the loop alive; while one runs another is refused: false or empty, and nothing is changed.
#pragma once

#include <netro/Export.h>
#include <netro/SMTPCls.h>
#include <netro/SMTPSettings.h>
#include <netro/Types.h>

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace netro {

class MailCall;
class MimeMessage;
class SocketModule;
struct CallState;

/// The list that a recipient stands in; its text is that of message 3100 plus the value.
enum RecipientTypeEnum : std::int32_t {
  RecipientStandard = 1,
  RecipientCarbonCopy = 2,
  RecipientBlindCarbonCopy = 3,
};

/// How the delivery to one recipient ended.
struct RecipientOutcome {
  std::string Address;
  RecipientTypeEnum Type = RecipientStandard;
  /// The server has taken the message, or the address in a simulation, whatever became of QUIT.
  bool Accepted = false;
  /// What SMTPCls has of the session.
  std::int32_t StepID = 0;
  std::int32_t Result = 0;
  std::string ResultMessage;
  std::string Protocol;
  /// 0 when accepted, else the number of the message that names the kind of failure: 3010 fatal,
  /// 3014 temporary and 3016 other DNS problems; 3011 fatal, 3015 temporary and 3017 other SMTP
  /// problems (of replies mostly 5yz, 4yz and all else; only the fatal ones are for good); 3013 the
  /// address is no address; 3018 the call was cancelled before the end of its session; 3019 (which
  /// has no message) may have arrived: the whole message was sent, but no reply to it came.
  std::int32_t ResultClass = 0;
};

class NETRO_EXPORT SendMailCls : public SMTPSettings {
 public:
  SendMailCls();
  ~SendMailCls();
  SendMailCls(const SendMailCls&) = delete;
  SendMailCls& operator=(const SendMailCls&) = delete;

  /// Gets the events of the sessions; not owned, may be null.
  SMTPClsEvents* Events() const { return events_; }
  void Events(SMTPClsEvents* sink) { events_ = sink; }

  // Composing. A message begins with one of the New methods; what was added to the message before
  // is forgotten then, and what was added before the first message belongs to that. A text whose
  // last line has no end gets one.

  /// A plain text.
  bool NewTextMsg(const std::string& MsgSubject, const std::string& MsgFrom,
                  const std::string& MsgTo, const std::string& MsgText,
                  const std::string& MsgCC = std::string(),
                  const std::string& MsgBCC = std::string());
  /// `MsgText` is HTML; its plain text goes along as the alternative.
  bool NewHTMLMsg(const std::string& MsgSubject, const std::string& MsgFrom,
                  const std::string& MsgTo, const std::string& MsgText,
                  const std::string& MsgCC = std::string(),
                  const std::string& MsgBCC = std::string());
  /// The same with a plain text of its own; an empty one is made of the HTML.
  bool NewHTMLMsgX(const std::string& MsgSubject, const std::string& MsgFrom,
                   const std::string& MsgTo, const std::string& MsgText,
                   const std::string& MsgAlternativeText = std::string(),
                   const std::string& MsgCC = std::string(),
                   const std::string& MsgBCC = std::string());
  /// A finished message, taken as it is, for the given sender and recipients; nothing can be added
  /// to it. Only when it is sent, Bcc fields are left out, and lines get CR LF as their end. False
  /// when the text does not begin with header fields (RFC 5322, section 2.2), or other lines stand
  /// between them.
  bool NewMsgFromMimeBuffer(const std::string& MimeBuffer, const std::string& MsgFrom,
                            const std::string& MsgTo, const std::string& MsgCC = std::string(),
                            const std::string& MsgBCC = std::string());

  /// Adds a header field behind the usual ones; a Bcc field counts as BCC, see
  /// AddBCCToMime. False when `Title` is no field name (RFC 5322, section 2.2) of up to 90
  /// characters, or MIME-Version, Content-Type or Content-Transfer-Encoding, by which the message
  /// is built, or a field that may stand only once (RFC 5322, section 3.6) and that the message
  /// has: From, Date, To and Message-ID always, Subject, CC and BCC when they were given. One of
  /// these that was added before the New method gives way to what that is given.
  bool AddHeader(const std::string& Title, const std::string& Value);

  /// Add an attachment: a file, a text, or bytes. Its name in the message is the file's own or
  /// `NameInMime`, of which letters, digits, "_" and "." are kept. False when the file is larger
  /// than 1 GiB, or no file, or cannot be read.
  bool AddAttachment(const std::string& Filename);
  bool AddAttachmentX(const std::string& Filename, const std::string& NameInMime);
  bool AddAttachmentFromBuffer(const std::string& buffer, const std::string& NameInMime);
  bool AddAttachmentFromByteArray(const Bytes& ByteArray, const std::string& NameInMime);
  /// The same for a file that the HTML refers to as "cid:" and its name in the message.
  bool AddRelatedFile(const std::string& Filename);
  bool AddRelatedFileX(const std::string& Filename, const std::string& NameInMime);
  bool AddRelatedFileFromBuffer(const std::string& buffer, const std::string& NameInMime);
  bool AddRelatedFileFromByteArray(const Bytes& ByteArr, const std::string& NameInMime);

  /// The character set of text parts; that of the locale at first. A text that it cannot hold is
  /// sent in UTF-8.
  const std::string& CharSet() const;
  void CharSet(std::string value);
  /// Whether the BCC recipients are named in the message.
  bool AddBCCToMime() const;
  void AddBCCToMime(bool value);
  /// The date of the message, local time; the New methods set it to the present one. A date outside
  /// the years 0 to 9999 counts as the present one.
  void MsgDate(Date value);
  /// Without the angle brackets, which are left out as blanks and characters beyond ASCII are;
  /// empty: a random one that ends in "@" and the sender's domain. The New methods, but for the
  /// first, empty it.
  const std::string& MessageID() const;
  void MessageID(std::string value);

  /// The composed message, its lines ended by CR LF; empty when there is none, or too little memory
  /// for it. It is composed when it is asked for or sent, and stays the same until the message is
  /// changed; so does the reference.
  const std::string& MimeBuffer() const;

  // Sending.

  /// Delivers the message to each recipient of To, CC and BCC in a session of its own. True when
  /// all were accepted; a recipient that fails does not stop the others. Unless SMTPTimeOutString
  /// has been set, the reply to the message has ten minutes. Events may change or delete anything.
  /// Result is 4001 without recipients, 4003 without a message, 97 for a sender
  /// that is missing or no address, else that of the first recipient that failed.
  bool SendMail();
  /// One for each recipient of the last SendMail, in their order; also when an exception ended it.
  const std::vector<RecipientOutcome>& Outcomes() const { return outcomes_; }

  // Addresses.

  /// Top-level domains that CheckeMailAddressSyntax accepts, separated by commas, without blanks;
  /// empty: all.
  const std::string& TLDs() const { return tlds_; }
  void TLDs(std::string value) { tlds_ = std::move(value); }
  /// True when `eMailAddress` is written as an address; Result is the number of the broken rule,
  /// 1 to 9, its text in ResultMessage.
  bool CheckeMailAddressSyntax(const std::string& eMailAddress);
  /// The syntax, then a session that ends before the message: true when the server takes the
  /// address. Result and ResultMessage are those of the syntax check when that fails, else the
  /// session's.
  bool CheckeMailAddress(const std::string& eMailAddress, const std::string& Sender = std::string(),
                         const std::string& SenderHostName = std::string());
  /// The mail exchanger of a domain, by name or address; empty when there is none.
  std::string QueryGatewayName(const std::string& Host);
  std::string QueryGatewayIP(const std::string& Host);
  /// The administrator's address for the domain of an address, from its SOA record (RFC 1035,
  /// section 3.3.13); empty when there is none.
  std::string GetMailAdminForeMail(const std::string& eMailAddress);

  /// Of the last call: 0 for success, and its text.
  std::int32_t Result() const { return result_; }
  const std::string& ResultMessage() const { return resultMessage_; }

  /// End the running call with 9999. Both are the same; any thread, signal-safe.
  void StopWaiting();
  void Kill();

 private:
  friend class MailCall;

  bool SetResult(std::int32_t result, std::string message);
  bool SetResult(std::int32_t result);
  bool MayAdd();
  bool AddFile(const std::string& filename, const std::string& name, bool related);
  bool AddBytes(std::string_view bytes, const std::string& name, bool related);

  std::shared_ptr<SocketModule> module_;
  std::shared_ptr<CallState> call_;
  std::unique_ptr<MimeMessage> message_;
  SMTPClsEvents* events_ = nullptr;
  std::string tlds_;
  std::vector<RecipientOutcome> outcomes_;
  std::int32_t result_ = 0;
  std::string resultMessage_;
};

}  // namespace netro
