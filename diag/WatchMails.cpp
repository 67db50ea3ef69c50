#include "diag/WatchMails.h"

#include <netro/MailSpool.h>
#include <netro/MessageLoop.h>

#include <algorithm>
#include <filesystem>
#include <new>

#include "diag/WatchProbe.h"
#include "diag/WatchShown.h"
#include "mail/MailAddress.h"
#include "platform/Address.h"
#include "platform/Clock.h"
#include "platform/Random.h"
#include "support/DateText.h"

namespace netro {
namespace {

using namespace std::chrono_literals;

constexpr std::size_t kMostMails = 10'000;  // that are not in the folder yet
constexpr std::size_t kMostParts = 1000;    // of a mail
// A server that is silent keeps a delivery busy for a minute; the others go past it.
constexpr std::size_t kMostDeliveries = 4;
constexpr auto kShortestWait = 100ms;
constexpr auto kLongestWait = 1000ms;
constexpr auto kDiskPause = 10s;
constexpr std::int32_t kFileErrors = 20'000;

// Servers that greylist take a mail after one to five minutes.
std::vector<std::int32_t> Retries() { return {60, 120, 300, 300, 600, 900, 1800, 3600}; }

void SetServer(SendMailCls& mail, const std::string& server) {
  std::string host;
  std::int32_t port = mail.Port();
  SplitEndpoint(server, host, port);
  mail.ReceiverHostName(host);
  mail.Port(port);
}

bool IsTried(const SpooledRecipient& recipient) { return recipient.Tries > 0; }

// The wall clock may be set meanwhile; a delivery looks at it again.
TimePoint Moment(Date date) {
  const auto at = ToTime(date);
  const auto now = ToTime(WallClock());
  return at && now && *at > *now ? Now() + (*at - *now) : Now();
}

}  // namespace

// One emptying of the folder. Stays until it is over, whatever becomes of the watcher.
struct WatchDelivery final : MailSpoolEvents {
  explicit WatchDelivery(std::shared_ptr<WatchMails> owner) : mails(std::move(owner)) {
    spool.Folder(mails->folder_);
    spool.RetrySeconds(Retries());
    spool.Bounces(false);  // the watcher tells
    SetServer(spool.Mail(), mails->server_);
    spool.Events(this);
    mails->deliveries_[this] = &spool;
  }
  ~WatchDelivery() override { mails->deliveries_.erase(this); }
  WatchDelivery(const WatchDelivery&) = delete;
  WatchDelivery& operator=(const WatchDelivery&) = delete;

  void Deferred(const std::string& Id, const SpooledRecipient& Recipient) override {
    if (Recipient.Tries == 1) Tell(Id, Recipient, " It will be tried again.");
  }
  void Failed(const std::string& Id, const SpooledRecipient& Recipient) override {
    Tell(Id, Recipient, " It is given up.");
  }
  void SetAside(const std::string& Path) override {
    mails->Tell("'" + Path + "' is no mail that could be sent.");
  }
  void Tell(const std::string& id, const SpooledRecipient& recipient, const char* more) const {
    mails->Tell("Mail '" + mails->SubjectOf(id) + "': " + recipient.Address + ": " +
                Sentence(recipient.Answer) + more);
  }

  const std::shared_ptr<WatchMails> mails;
  MailSpool spool;
};

void WatchMails::Configure(const WatchSettings& settings, const std::string& senderHostName) {
  server_ = settings.mailServer;
  sender_ = settings.sender;
  recipients_ = settings.recipients;
  senderHostName_ = senderHostName;
  groupTime_ = std::chrono::seconds(settings.groupSeconds);
  if (kept_.empty() || folder_ == kept_) return;
  folder_ = kept_;
  Count();
  Resume();
}

void WatchMails::Add(WatchMailPart part) {
  const bool isOpen = !gathered_.empty() && Now() < gathered_.back().end;
  if (!isOpen && gathered_.size() >= kMostMails) {
    return Tell("Mail '" + part.subject + "': too many wait already.");
  }
  if (!isOpen) {
    Gathering mail{{}, 0, Now() + groupTime_};
    mail.parts.push_back(std::move(part));
    return gathered_.push_back(std::move(mail));
  }
  Gathering& mail = gathered_.back();
  if (mail.parts.size() < kMostParts) {
    mail.parts.push_back(std::move(part));
  } else {
    ++mail.more;
  }
}

std::vector<std::vector<std::string>> WatchMails::Gathered() const {
  std::vector<std::vector<std::string>> all;
  for (const Gathering& mail : gathered_) {
    for (const WatchMailPart& part : mail.parts)
      all.push_back({part.word, part.subject, part.text});
  }
  return all;
}

void WatchMails::Recall(std::vector<std::string> fields) {
  if (fields.size() != 3) return;
  Add({std::move(fields[0]), std::move(fields[1]), std::move(fields[2])});
}

// What can outlive the program is put where it does.
void WatchMails::Flush() {
  for (Gathering& mail : gathered_) mail.end = std::min(mail.end, Now());
  try {
    if (!kept_.empty()) SpoolGathered();
  } catch (const std::bad_alloc&) {  // the task will
  }
  Resume();
}

void WatchMails::Resume() {
  if (!HasWork() || !task_.Done()) return;
  task_ = MessageLoop::ForThisThread().StartTask([self = shared_from_this()] { self->Work(); });
}

void WatchMails::GiveUp() {
  Flush();
  gathered_.clear();
  for (const auto& [delivery, spool] : deliveries_) spool->StopWaiting();
  RemoveOwnFolder();
  folder_.clear();
  spooled_ = deferred_ = 0;
  fresh_ = false;
}

void WatchMails::RemoveOwnFolder() {
  if (!kept_.empty() || folder_.empty()) return;
  std::error_code ignored;
  std::filesystem::remove_all(folder_, ignored);
  folder_.clear();
}

void WatchMails::Work() {
  MessageLoop& loop = MessageLoop::ForThisThread();
  bool cancelled = false;
  while (!cancelled && HasWork()) {
    TimePoint next = Now() + kLongestWait;
    try {
      next = std::min(next, Step());
    } catch (const std::bad_alloc&) {
    }
    const auto wait = std::chrono::ceil<std::chrono::milliseconds>(next - Now());
    cancelled = loop.Sleep(std::max<std::chrono::milliseconds>(wait, kShortestWait)) != 0;
  }
  if (cancelled) Flush();
  if (cancelled || !HasWork()) RemoveOwnFolder();
}

/// Does what is due, and says when there is more to do.
TimePoint WatchMails::Step() {
  const TimePoint gathered = SpoolGathered();
  const bool due = fresh_ || (deliveries_.empty() && nextTry_ <= Now());
  if (due && deliveries_.size() < kMostDeliveries) Deliver();
  return std::min(gathered, deliveries_.empty() ? nextTry_ : TimePoint::max());
}

TimePoint WatchMails::SpoolGathered() {
  while (!gathered_.empty() && gathered_.front().end <= Now()) {
    if (!Spool(gathered_.front())) break;
    gathered_.pop_front();
    ++out_;
  }
  return gathered_.empty() ? TimePoint::max() : gathered_.front().end;
}

// False while there is no place for it.
bool WatchMails::Spool(Gathering& mail) {
  HaveFolder();
  const std::int32_t error = SpoolFor(recipients_, mail);
  if (error == 0) return true;
  if (error >= kFileErrors) {
    mail.end = Now() + kDiskPause;
    return false;
  }
  // An address is bad. The others shall get it all the same.
  const std::vector<std::string> list = SplitAddressList(recipients_);
  for (const std::string& recipient : list) {
    if (list.size() > 1) SpoolFor(recipient, mail);
  }
  return true;
}

std::int32_t WatchMails::SpoolFor(const std::string& recipients, Gathering& mail) {
  SendMailCls composer;
  const std::string subject = Subject(mail);
  if (composer.NewTextMsg(subject, sender_, recipients, Text(mail)) && composer.SpoolMsg(folder_)) {
    fresh_ = true;
    ++spooled_;
    subjects_[composer.SpoolID()] = subject;
    return 0;
  }
  const std::int32_t error = composer.Result();
  if (error < kFileErrors || !std::exchange(mail.told, true)) {
    Tell("Mail '" + subject + "': " + recipients + ": " + composer.ResultMessage());
  }
  return error;
}

void WatchMails::HaveFolder() {
  if (!folder_.empty()) return;
  std::error_code error;
  const std::filesystem::path place = std::filesystem::temp_directory_path(error);
  std::string name = "netro-watch";
  for (int i = 0; i < 4; ++i) name += "-" + std::to_string(RandomNumber());
  folder_ = (place / name).string();  // which SpoolMsg makes, for this user only
}

std::string WatchMails::Subject(const Gathering& mail) const {
  if (mail.parts.size() == 1 && mail.more == 0) return mail.parts.front().subject;
  std::map<std::string, std::size_t> counts;
  for (const WatchMailPart& part : mail.parts) ++counts[part.word];
  std::string text = senderHostName_ + ": " + std::to_string(mail.parts.size() + mail.more);
  text += " reports";
  const char* separator = " (";
  for (const auto& [word, count] : counts) {
    text += std::exchange(separator, ", ") + std::to_string(count) + " " + word;
  }
  return text + ")";
}

std::string WatchMails::Text(const Gathering& mail) {
  std::string text;
  for (const WatchMailPart& part : mail.parts) text += (text.empty() ? "" : "\n\n") + part.text;
  if (mail.more > 0) text += "\n\nAnd " + std::to_string(mail.more) + " more.";
  return text;
}

void WatchMails::Deliver() {
  const Task task = MessageLoop::ForThisThread().StartTask([self = shared_from_this()] {
    try {
      self->Empty();
    } catch (const std::bad_alloc&) {
      self->nextTry_ = Now() + kLongestWait;
    }
  });
  if (task.Error() != 0) return;
  fresh_ = false;
  nextTry_ = TimePoint::max();
}

void WatchMails::Empty() {
  if (folder_.empty()) return;  // given up meanwhile
  {
    WatchDelivery delivery(shared_from_this());
    if (!delivery.spool.DeliverDue() && delivery.spool.Result() >= kFileErrors) {
      Tell("Mails: " + delivery.spool.ResultMessage());
    }
  }
  Count();
}

// What is in the folder, after it has changed.
void WatchMails::Count() {
  spooled_ = deferred_ = 0;
  nextTry_ = TimePoint::max();
  if (folder_.empty()) return;
  MailSpool spool;
  spool.Folder(folder_);
  spool.RetrySeconds(Retries());
  std::map<std::string, std::string> subjects;
  for (const SpooledMail& mail : spool.List()) {
    ++spooled_;
    deferred_ += std::ranges::any_of(mail.Recipients, IsTried) ? 1 : 0;
    // One that is due already is another program's at present.
    nextTry_ = std::min(nextTry_, std::max(Moment(mail.NextTry), Now() + kLongestWait));
    if (auto known = subjects_.extract(mail.Id)) subjects.insert(std::move(known));
  }
  subjects_ = std::move(subjects);
}

void WatchMails::Tell(const std::string& text) const {
  if (*notes_) (*notes_)(kMailFailed, "mail", WatchFacts(), HarmlessText(text));
}

std::string WatchMails::SubjectOf(const std::string& id) const {
  const auto known = subjects_.find(id);
  return known == subjects_.end() ? id : known->second;
}

}  // namespace netro
