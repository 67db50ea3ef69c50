// MailSpool: delivers the messages that SendMailCls::SpoolMsg has put into a folder: tries those
// that are due, tries again later what may succeed then, and returns what cannot be delivered to
// its sender (RFC 3464, RFC 5321 section 4.5.4).
//
// Each message is one file, which holds the envelope, the text and a record of every answer. A
// record is on the disk before the next message is sent, so a program that is ended at any moment
// loses nothing; only a message that a server has taken and that is not recorded yet is sent again.
// Any number of objects, threads and programs may work on one folder: each message is claimed by
// one of them at a time. The folder must be on a file system with locks, and programs of others
// must not be able to write into it.
//
// Methods that fail leave the reason in Result and ResultMessage: 20000 plus the system's number
// and the path for files, 10022 for a wrong argument, 9999 when cancelled, 10002 when the task's
// deadline came, 10036 when Mail() is in another call.
//
// Thread: as SocketCls; only Kill and StopWaiting may come from any thread, or from a signal
// handler. DeliverDue blocks, keeping the loop alive; while it runs another is refused: false, and
// nothing is changed.
#pragma once

#include <netro/Export.h>
#include <netro/SendMailCls.h>
#include <netro/Types.h>

#include <cstdint>
#include <memory>
#include <string>
#include <utility>
#include <vector>

namespace netro {

class SpoolRun;
class SpoolStopper;
struct CallState;

/// How far the delivery to a recipient is.
enum SpoolStateEnum : std::int32_t {
  SpoolPending = 0,
  SpoolDelivered = 1,
  SpoolFailed = 2,          // for good, or not delivered within the limit
  SpoolMayHaveArrived = 3,  // sent whole, and no answer came: not sent again
};

/// One recipient of a message in the spool.
struct SpooledRecipient {
  std::string Address;                  // without angle brackets
  SpoolStateEnum State = SpoolPending;  // the last tries' outcome
  std::int32_t Tries = 0;               // so far
  /// Of the last try, see RecipientOutcome; `Answer` is on one line, without control characters.
  std::int32_t ResultClass = 0;
  std::int32_t Result = 0;
  std::string Answer;
  Date LastTry = 0;  // UTC; 0: none yet
  Date NextTry = 0;  // UTC; 0 unless pending
  /// Failed, and its sender has been told, or nobody was to be.
  bool Reported = false;
};

/// One message in the spool.
struct SpooledMail {
  std::string Id;          // letters, digits and "-"
  std::string Sender;      // empty: bounces go nowhere
  Date Created = 0;        // UTC
  Date NextTry = 0;        // UTC, the earliest of the recipients'; 0 when none is pending
  std::uint64_t Size = 0;  // bytes of the text
  std::vector<SpooledRecipient> Recipients;  // as they were given
};

/// Receives what DeliverDue does; each event comes when the fact is on the disk. Everything is
/// allowed inside, deleting the MailSpool included, which ends the call, as an exception does.
class NETRO_EXPORT MailSpoolEvents {
 public:
  virtual ~MailSpoolEvents() = default;

  /// A server has taken it.
  virtual void Delivered(const std::string& Id, const SpooledRecipient& Recipient) {
    (void)Id, (void)Recipient;
  }
  /// Will be tried again.
  virtual void Deferred(const std::string& Id, const SpooledRecipient& Recipient) {
    (void)Id, (void)Recipient;
  }
  /// Will not; may have arrived when its State says so.
  virtual void Failed(const std::string& Id, const SpooledRecipient& Recipient) {
    (void)Id, (void)Recipient;
  }
  /// The sender's bounce message for all that have failed since the last one is in the spool.
  virtual void Bounced(const std::string& Id, const std::string& BounceId) {
    (void)Id, (void)BounceId;
  }
  /// A file that is no message of a spool is now called `Path`, which ends in ".bad".
  virtual void SetAside(const std::string& Path) { (void)Path; }
};

class NETRO_EXPORT MailSpool {
 public:
  MailSpool();
  ~MailSpool();
  MailSpool(const MailSpool&) = delete;
  MailSpool& operator=(const MailSpool&) = delete;

  /// The folder of the messages. SpoolMsg creates it; here it must exist.
  const std::string& Folder() const { return folder_; }
  void Folder(std::string value) { folder_ = std::move(value); }

  /// How messages are sent: server, TLS, login, DNS, proxy, the sink of the sessions' events.
  /// DeliverDue composes its messages in it. With Simulation nothing would be delivered, so
  /// DeliverDue refuses that.
  SendMailCls& Mail() { return *mail_; }

  /// Not owned, may be null.
  MailSpoolEvents* Events() const { return events_; }
  void Events(MailSpoolEvents* sink) { events_ = sink; }

  /// Seconds from one try to the next; the last number counts for all that follow. At first 5, 15,
  /// 30 and 60 minutes. False when there is none, or one that is not 1 to 31 days.
  const std::vector<std::int32_t>& RetrySeconds() const { return retrySeconds_; }
  bool RetrySeconds(std::vector<std::int32_t> value);
  /// How long after a message was spooled its last try may be; two days at first. 0: one try.
  std::int32_t LimitSeconds() const { return limitSeconds_; }
  void LimitSeconds(std::int32_t value) { limitSeconds_ = value; }
  /// Whether failures are returned to the sender; true at first. A message without a sender, as
  /// bounces are, is never returned.
  bool Bounces() const { return bounces_; }
  void Bounces(bool value) { bounces_ = value; }

  /// Tries what is due, or with `All` everything that is pending, one domain after the other, and
  /// the bounces that come of it. A server that cannot be reached is not tried again for the next
  /// message; that one is deferred as well. What others are delivering is left to them. True when
  /// all was tried, whatever the answers; else Result tells what went wrong first, and what could
  /// be done was done.
  bool DeliverDue(bool All = false);

  /// All messages, the oldest first. Files that are none are left out.
  std::vector<SpooledMail> List();
  /// Deletes a message; false when there is none of this id, or it is being delivered.
  bool Remove(const std::string& Id);
  /// When DeliverDue has something to do, UTC; 0 when the spool is empty.
  Date NextTry();

  /// Of the last call: 0 for success.
  std::int32_t Result() const { return result_; }
  const std::string& ResultMessage() const { return resultMessage_; }

  /// End the running DeliverDue with 9999; what is not decided stays in the spool. Both are the
  /// same; any thread, signal-safe.
  void StopWaiting();
  void Kill();

 private:
  friend class SpoolRun;

  bool SetResult(std::int32_t result, std::string message);

  std::shared_ptr<SendMailCls> mail_;
  std::shared_ptr<CallState> call_;
  std::shared_ptr<SpoolStopper> stopper_;
  MailSpoolEvents* events_ = nullptr;
  std::string folder_;
  std::vector<std::int32_t> retrySeconds_;
  std::int32_t limitSeconds_ = 2 * 24 * 3600;
  bool bounces_ = true;
  std::int32_t result_ = 0;
  std::string resultMessage_;
};

}  // namespace netro
