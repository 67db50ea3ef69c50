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
#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace netro {

class ByteSource;
class MailCall;
class MimeMessage;
struct KeptSession;
class SpoolRun;
class SocketModule;
struct CallState;

/// The list that a recipient stands in; its text is that of message 3100 plus the value.
enum RecipientTypeEnum : std::int32_t {
  RecipientStandard = 1,
  RecipientCarbonCopy = 2,
  RecipientBlindCarbonCopy = 3,
};

/// One try to deliver: a session with one address of one server, as far as it came.
struct DeliveryTry {
  std::string Host;     // name of the server or exchanger
  std::string Address;  // that it was connected to; empty when it was not
  bool Protected = false;  // by TLS
  /// What SMTPCls has: 80 and 0 when the session did what was wanted of it.
  std::int32_t StepID = 0;
  std::int32_t Result = 0;
  std::string ResultMessage;
};

/// How the delivery to one recipient ended.
struct RecipientOutcome {
  std::string Address;                         // of the recipient
  RecipientTypeEnum Type = RecipientStandard;  // To, Cc or Bcc
  /// The server has taken the message, or the address in a simulation, whatever became of QUIT.
  bool Accepted = false;
  /// What SMTPCls has of the session.
  std::int32_t StepID = 0;
  std::int32_t Result = 0;
  std::string ResultMessage;
  /// The transcripts of the sessions; of recipients that share them the first has it.
  std::string Protocol;
  /// The server's code for the reason (RFC 3463), such as "5.1.1"; empty when it gave none.
  std::string EnhancedStatus;
  /// Each session that was tried for it, in their order. The last one in which there was a
  /// connection decided.
  std::vector<DeliveryTry> Tries;
  /// 0 when accepted, else the number of the message that names the kind of failure: 3010 fatal,
  /// 3014 temporary and 3016 other DNS problems; 3011 fatal, 3015 temporary and 3017 other SMTP
  /// problems (of replies mostly 5yz, 4yz and all else; only the fatal ones are for good); 3013 the
  /// address is no address; 3018 the call was cancelled before the end of its session; 3019 (which
  /// has no message) may have arrived: the whole message was sent, but no reply to it came, or none
  /// that says yes or no.
  std::int32_t ResultClass = 0;
};

/// What one server would do with a recipient, see TraceMail.
struct ExchangerTrace {
  std::string Host;                    // its name
  std::vector<std::string> Addresses;  // all that it has
  /// Of the address that was connected to; empty when none was.
  std::string Address;
  std::string Greeting;
  std::vector<std::string> Extensions;  // as the reply to EHLO has them, after STARTTLS if there was
  bool Protected = false;               // by TLS
  netro::TlsInfo TlsInfo;               // empty without TLS
  bool LoggedIn = false;                // with the user and password of the settings
  bool SenderAccepted = false;          // the reply to MAIL was good
  bool RecipientAccepted = false;       // and so was that to RCPT
  /// Where the session ended: 80 and 0 when it went as far as the recipient.
  std::int32_t StepID = 0;
  std::int32_t Result = 0;
  std::string ResultMessage;
};

/// What each server of a recipient would do, see TraceMail.
struct MailTrace {
  std::string Address;  // of the recipient
  /// Why nobody could be asked: 3013 the address is no address, 3010, 3014 and 3016 DNS; else 0.
  std::int32_t ResultClass = 0;
  std::string ResultMessage;
  std::vector<ExchangerTrace> Exchangers;  // in the order in which they are tried
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

  /// The same with a file, of which only the name is held: it is read while the message is sent,
  /// twice, since its length must be known before, and must stay as it is until then. False, too,
  /// when it cannot be read. Of the fields the first 64 KiB are looked at.
  bool NewMsgFromMimeFile(const std::string& Filename, const std::string& MsgFrom,
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
  /// Of a file only the name is held: it is read while the message is sent or written, and must
  /// stay as it is until then. One that was written to, replaced or removed since ends that with
  /// 20116 or its error, and the server gets no whole message.
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

  /// The composed message, its lines ended by CR LF; empty when there is none, too little memory
  /// for it, or a file that cannot be read any more. It is composed when it is asked for, written
  /// or sent, and stays the same until the message is changed; so does the reference. It holds all
  /// of the message in memory; SendMail and the next two do not.
  const std::string& MimeBuffer() const;
  /// The length of MimeBuffer in bytes, without making it.
  std::uint64_t MessageSize() const;
  /// Writes the message as it is sent, but for the dots of SMTP, to a new file of mode 0600, which
  /// takes the name `Filename` when it is whole and on the disk; a file or link of this name is
  /// replaced. On failure nothing is left behind. False with 4003 without a message, or 20000 plus
  /// the system's number for a file that cannot be written, or not be read.
  bool SaveMessage(const std::string& Filename);
  /// Gives the message as it is sent, but for the dots of SMTP, to `Write` in blocks of up to 80 KB
  /// that are valid during the call. When that returns false, it ends with 9999. False else as with
  /// SaveMessage; what was given then is no message. `Write` may change or delete anything.
  bool WriteMessage(const std::function<bool(std::string_view)>& Write);

  // Sending.

  /// Delivers the message to each recipient of To, CC and BCC; one session for all that go to the
  /// same server: ReceiverHostName, or the exchangers of a domain (RFC 5321, section 5), of which
  /// all are tried with all their addresses, in the order of preference, until one takes it. What
  /// fails before the message begins moves on to the next, but for a recipient that is refused for
  /// good (5yz); what fails later does not. True when all were accepted; a recipient that fails
  /// does not stop the others. Unless SMTPTimeOutString has been set, the reply to the message has
  /// ten minutes. Events may change or delete anything. Result is 4001 without recipients, 4003
  /// without a message, 97 for a sender that is missing or no address, else that of the first
  /// recipient that failed.
  bool SendMail();
  /// One for each recipient of the last SendMail, in their order; also when an exception ended it.
  const std::vector<RecipientOutcome>& Outcomes() const { return outcomes_; }

  /// Puts the message into a folder, which is created when it is missing (mode 0700), as one file;
  /// MailSpool delivers it. It is on the disk, and has left this object, when this succeeds, and not
  /// in the folder at all when it does not. All addresses are checked first: Result is 4001, 4003,
  /// or 97 for an address that is none; 20000 plus the system's number for the folder and its disk.
  bool SpoolMsg(const std::string& Folder);
  /// The id of the last message that was spooled.
  const std::string& SpoolID() const { return spoolID_; }

  /// Sends the message with the empty sender, as bounces are (RFC 5321, section 4.5.5), whatever
  /// its From is.
  bool NullSender() const { return nullSender_; }
  void NullSender(bool value) { nullSender_ = value; }

  /// Takes addresses whose host is one word, which a server that is named may know
  /// ("root@localhost").
  bool LocalHosts() const { return localHosts_; }
  void LocalHosts(bool value) { localHosts_ = value; }

  /// Leaves the last session of SendMail open for the next one to the same server or domain with
  /// the same settings; it is used within four minutes, and opened anew once when the server has
  /// closed it. EndSession says QUIT and closes it; the destructor closes it.
  bool KeepSession() const { return keepSession_; }
  void KeepSession(bool value) { keepSession_ = value; }
  void EndSession();

  /// What would happen to each recipient of the message if it were sent now. Asks all exchangers,
  /// one address of each, up to RCPT TO, and sends no message. Blocks as SendMail; empty, with the
  /// reason in Result, where that would not begin.
  std::vector<MailTrace> TraceMail();

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
  friend class SpoolRun;

  bool SetResult(std::int32_t result, std::string message);
  bool SetResult(std::int32_t result);
  bool MayAdd();
  bool FailFile(std::int32_t error);
  std::unique_ptr<ByteSource> OpenMessage();
  bool AddFile(const std::string& filename, const std::string& name, bool related);
  bool AddBytes(std::string_view bytes, const std::string& name, bool related);

  std::shared_ptr<SocketModule> module_;
  std::shared_ptr<CallState> call_;
  std::unique_ptr<MimeMessage> message_;
  SMTPClsEvents* events_ = nullptr;
  std::string tlds_;
  std::vector<RecipientOutcome> outcomes_;
  std::string spoolID_;
  bool nullSender_ = false;
  bool localHosts_ = false;
  bool keepSession_ = false;
  std::unique_ptr<KeptSession> kept_;
  std::int32_t result_ = 0;
  std::string resultMessage_;
};

}  // namespace netro
