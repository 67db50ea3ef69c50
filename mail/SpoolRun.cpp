#include "mail/SpoolRun.h"

#include <algorithm>
#include <utility>

#include "mail/BounceMessage.h"
#include "mail/HeaderBlock.h"
#include "mail/MailAddress.h"
#include "mail/MimeMessage.h"
#include "mail/RandomText.h"
#include "mail/SpoolFile.h"
#include "platform/Clock.h"
#include "platform/ErrorNumbers.h"
#include "platform/Folder.h"
#include "platform/HostInfo.h"
#include "platform/OutputFile.h"
#include "socket/SocketErrors.h"
#include "support/OnException.h"
#include "support/Text.h"

namespace netro {
namespace {

/// Result classes, see RecipientOutcome, and the result of a message without recipients.
constexpr std::int32_t kInvalidAddress = 3013;
constexpr std::int32_t kNotTried = 3018;
constexpr std::int32_t kNoRecipient = 4001;

/// Leaves room in an id for what marks the id of a bounce.
constexpr std::size_t kLongestBouncedId = 45;

bool IsUnreported(const SpooledRecipient& recipient) {
  return !recipient.Reported &&
         (recipient.State == SpoolFailed || recipient.State == SpoolMayHaveArrived);
}

bool IsPending(const SpooledRecipient& recipient) { return recipient.State == SpoolPending; }

}  // namespace

SpoolRun::SpoolRun(MailSpool& owner, bool all)
    : owner_(owner),
      call_(owner.call_),
      mail_(owner.mail_),
      mark_(Loop::ForThread(), call_),
      folder_(owner.folder_),
      schedule_{owner.retrySeconds_, owner.limitSeconds_},
      bounces_(owner.bounces_),
      all_(all) {}

// The bounces that a pass has made are new messages; they make no further ones.
bool SpoolRun::Deliver() {
  mail_->KeepSession(true);
  const OnException end([&] { mail_->KeepSession(false); });
  do {
    bounced_ = false;
    Pass();
    all_ = false;
  } while (bounced_ && GoesOn());
  mail_->KeepSession(false);
  if (call_->alive && !mark_.Cancelled()) mail_->EndSession();
  if (call_->alive) owner_.SetResult(result_, std::move(resultMessage_));
  return call_->alive && result_ == 0;
}

void SpoolRun::Pass() {
  groups_.clear();
  groupNumbers_.clear();
  visitsLeft_.clear();
  std::vector<std::string> ids;
  if (const std::int32_t error = ListSpool(folder_, ids)) return Trouble(error, folder_);
  for (const std::string& id : ids) {
    if (!call_->alive) return;
    Plan(id);
  }
  for (const Group& group : groups_) {
    down_.reset();
    for (const std::string& id : group.ids) {
      if (!GoesOn()) return;
      Visit(group.domain, id, --visitsLeft_[id] == 0);
    }
  }
}

void SpoolRun::Plan(const std::string& id) {
  SpoolItem item;
  const std::int32_t error = item.Open(folder_, id);
  if (SpoolItem::IsBad(error)) return SetAside(id);
  if (JournalFile::IsMissing(error)) return;
  if (error != 0) return Trouble(error, SpoolPath(folder_, id));
  bool planned = false;
  for (const SpooledRecipient& recipient : item.Mail().Recipients) {
    if (!IsDueNow(recipient)) continue;
    Group& group = GroupOf(DomainOf(recipient.Address));
    planned = true;
    if (!group.ids.empty() && group.ids.back() == id) continue;
    group.ids.push_back(id);
    ++visitsLeft_[id];
  }
  // What an end of the program has left undone.
  const auto& all = item.Mail().Recipients;
  if (!planned && (std::ranges::none_of(all, IsPending) || std::ranges::any_of(all, IsUnreported)))
    Visit({}, id, true);
}

SpoolRun::Group& SpoolRun::GroupOf(const std::string& domain) {
  const auto [found, isNew] = groupNumbers_.try_emplace(domain, groups_.size());
  if (isNew) groups_.push_back({domain, {}});
  return groups_[found->second];
}

std::string SpoolRun::DomainOf(const std::string& address) const {
  return mail_->ReceiverHostName().empty() ? ToLower(ExtractAddress(address).host) : std::string();
}

bool SpoolRun::IsDueNow(const SpooledRecipient& recipient) const {
  return IsPending(recipient) && (all_ || IsDue(schedule_, recipient.NextTry, WallClock()));
}

SpoolRun::Numbers SpoolRun::DueIn(const SpooledMail& mail, const std::string& domain) const {
  Numbers due;
  for (std::size_t number = 0; number < mail.Recipients.size(); ++number) {
    const SpooledRecipient& recipient = mail.Recipients[number];
    if (IsDueNow(recipient) && DomainOf(recipient.Address) == domain) due.push_back(number);
  }
  return due;
}

void SpoolRun::Visit(const std::string& domain, const std::string& id, bool last) {
  SpoolItem item;
  const std::int32_t error = item.Claim(folder_, id);
  if (JournalFile::IsTaken(error) || JournalFile::IsMissing(error)) return;
  if (SpoolItem::IsBad(error)) return SetAside(id);
  if (error != 0) return Trouble(error, SpoolPath(folder_, id));
  const Numbers due = DueIn(item.Mail(), domain);
  if (!due.empty()) Send(item, due);
  if (last) Settle(item);
}

void SpoolRun::Send(SpoolItem& item, const Numbers& due) {
  if (const std::int32_t error = item.Reserve(due.size()))
    return Trouble(error, SpoolPath(folder_, item.Mail().Id));
  if (down_) return Tell(item.Mail(), Keep(item, due, {}));
  if (!Compose(item, due)) return;
  bool kept = false;
  const OnException keep([&] {
    if (!kept) Keep(item, due, mail_->Outcomes());
  });
  const bool sent = mail_->SendMail();
  // A call that was refused has changed nothing: not the result either, which is that of composing.
  if (!sent && mail_->Result() == 0) {
    kept = true;
    stopped_ = true;
    return Trouble(kErrInProgress, SpoolPath(folder_, item.Mail().Id));
  }
  const auto& outcomes = mail_->Outcomes();
  if (!outcomes.empty() && IsServerDown(outcomes.back())) down_ = outcomes.back();
  const Numbers changed = Keep(item, due, outcomes);
  kept = true;
  Tell(item.Mail(), changed);
}

/// Makes the text of a spool file, which stays in the file, the message of the object that sends
/// it.
bool SpoolRun::Compose(const SpoolItem& item, const Numbers& due) {
  constexpr std::size_t kFront = 64 * 1024;
  std::string front;
  if (const std::int32_t error = item.Front(front, kFront)) {
    Trouble(error, SpoolPath(folder_, item.Mail().Id));
    return false;
  }
  if (front.size() < item.Mail().Size) front.resize(front.rfind('\n') + 1);
  if (!HasHeaderBlock(front)) {
    SetAside(item.Mail().Id);
    return false;
  }
  std::string to;
  for (const std::size_t number : due) {
    const std::string& address = item.Mail().Recipients[number].Address;
    // One that would be read as another one could not be found in the outcomes.
    if (ExtractAddress("<" + address + ">").address == address) to += "<" + address + ">,";
  }
  mail_->AddBCCToMime(true);  // the text is as it is to arrive
  mail_->NullSender(item.Mail().Sender.empty());
  mail_->message_->BeginFinished({{}, item.Mail().Sender, to, {}, {}}, item.Text());
  return mail_->SetResult(0);
}

/// Records what the outcomes make of these recipients.
SpoolRun::Numbers SpoolRun::Keep(SpoolItem& item, const Numbers& due,
                                 const std::vector<RecipientOutcome>& outcomes) {
  Numbers changed;
  std::vector<SpooledRecipient> recipients;
  for (const std::size_t number : due) {
    SpooledRecipient recipient = item.Mail().Recipients[number];
    const auto found = std::ranges::find(outcomes, recipient.Address, &RecipientOutcome::Address);
    const RecipientOutcome outcome = found != outcomes.end() ? *found : Missing();
    if (JudgeTry(schedule_, item.Mail().Created, outcome, WallClock(), recipient)) {
      changed.push_back(number);
      recipients.push_back(std::move(recipient));
    } else {
      Trouble(mark_.Expired() ? kErrTimedOut : outcome.Result, {});
    }
  }
  if (changed.empty()) return {};
  if (const std::int32_t error = item.Record(changed, recipients)) {
    stopped_ = true;  // nothing more is sent whose answer would be forgotten
    Trouble(error, SpoolPath(folder_, item.Mail().Id));
    return {};
  }
  return changed;
}

void SpoolRun::Tell(const SpooledMail& mail, const Numbers& numbers) {
  for (const std::size_t number : numbers) {
    const SpooledRecipient recipient = mail.Recipients[number];
    Raise([&](MailSpoolEvents& events) {
      if (recipient.State == SpoolDelivered) {
        events.Delivered(mail.Id, recipient);
      } else if (recipient.State == SpoolPending) {
        events.Deferred(mail.Id, recipient);
      } else {
        events.Failed(mail.Id, recipient);
      }
    });
  }
}

void SpoolRun::Settle(SpoolItem& item) {
  const auto& recipients = item.Mail().Recipients;
  Numbers failed;
  for (std::size_t number = 0; number < recipients.size(); ++number) {
    if (IsUnreported(recipients[number])) failed.push_back(number);
  }
  if (!failed.empty() && !Return(item, failed)) return;
  if (std::ranges::any_of(recipients, IsPending)) return;
  const std::string path = SpoolPath(folder_, item.Mail().Id);
  if (const std::int32_t error = RemoveFile(path)) Trouble(error, path);
}

// The bounce is named after the message and whom it tells of, so that an end of the program between
// the two records makes no second one, unless it has more to tell.
bool SpoolRun::Return(SpoolItem& item, const Numbers& failed) {
  const std::string id = item.Mail().Id;
  std::string bounce;
  if (bounces_ && !item.Mail().Sender.empty()) {
    bounce = id.substr(0, kLongestBouncedId) + "-b" + std::to_string(failed.front()) + "-" +
             std::to_string(failed.size());
    if (const std::int32_t error = PutBounce(item, failed, bounce)) {
      Trouble(error, SpoolPath(folder_, bounce));
      return false;
    }
    bounced_ = true;
  }
  if (const std::int32_t error = item.Report(failed)) {
    Trouble(error, SpoolPath(folder_, id));
    return false;
  }
  if (!bounce.empty()) Raise([&](MailSpoolEvents& events) { events.Bounced(id, bounce); });
  return true;
}

std::int32_t SpoolRun::PutBounce(const SpoolItem& item, const Numbers& failed,
                                 const std::string& id) const {
  JournalFile there;
  if (there.Open(SpoolPath(folder_, id)) == 0) return 0;
  constexpr std::size_t kFront = 64 * 1024;
  std::string text;
  if (const std::int32_t error = item.Front(text, kFront)) return error;
  BounceFacts facts;
  facts.host = mail_->SenderHostName().empty() ? ReadHostName() : mail_->SenderHostName();
  facts.now = WallClock();
  facts.boundary = "report-" + RandomText(24);
  facts.message = text;
  SpooledMail bounce;
  bounce.Id = id;
  bounce.Created = facts.now;
  bounce.Recipients.emplace_back().Address = item.Mail().Sender;
  MemorySource report(ComposeBounce(item.Mail(), failed, facts));
  return PutIntoSpool(folder_, bounce, report);
}

/// What a recipient gets without an outcome of its own: that of the server that is away, or of a
/// delivery that did not find the address.
RecipientOutcome SpoolRun::Missing() const {
  RecipientOutcome outcome;
  outcome.ResultClass = kNotTried;
  outcome.Result = mail_->Result();
  if (down_) return *down_;
  if (mail_->Outcomes().empty() && mail_->Result() != kNoRecipient) return outcome;
  outcome.ResultClass = kInvalidAddress;
  outcome.ResultMessage = "No address";
  return outcome;
}

/// False when the run is to end. Between two messages what waits on the loop has its turn.
bool SpoolRun::GoesOn() {
  if (stopped_ || !call_->alive) return false;
  WaitUntil(mark_, Now(), [] { return true; });
  if (!call_->alive) return false;
  const std::int32_t error = mark_.Cancelled() ? kErrCancelled : mark_.Expired() ? kErrTimedOut : 0;
  if (error != 0) Trouble(error, {});
  return error == 0;
}

void SpoolRun::Trouble(std::int32_t error, const std::string& path) {
  if (result_ != 0) return;
  result_ = error;
  resultMessage_ = path.empty() ? SocketErrorText(error) : SpoolErrorText(error, path);
}

void SpoolRun::SetAside(const std::string& id) {
  const std::string path = SpoolBadPath(folder_, id);
  const std::int32_t error = RenameFile(SpoolPath(folder_, id), path);
  if (JournalFile::IsMissing(error)) return;  // another one has done so
  if (error != 0) return Trouble(error, path);
  Raise([&](MailSpoolEvents& events) { events.SetAside(path); });
}

template <class Event>
void SpoolRun::Raise(Event event) {
  if (call_->alive && owner_.events_ != nullptr) event(*owner_.events_);
}

}  // namespace netro
