#include <netro/MailSpool.h>

#include <algorithm>
#include <new>

#include "mail/SpoolFile.h"
#include "mail/SpoolFolder.h"
#include "mail/SpoolRun.h"
#include "mail/SpoolSchedule.h"
#include "platform/CallState.h"
#include "platform/Clock.h"
#include "platform/ErrorNumbers.h"
#include "platform/OutputFile.h"
#include "socket/SocketErrors.h"

namespace netro {

/// Ends the running session on the loop's thread, where no session can begin unnoticed between
/// stopping the run and stopping the session.
class SpoolStopper final : public Wakeable {
 public:
  SpoolStopper(std::shared_ptr<Loop> loop, std::shared_ptr<SendMailCls> mail)
      : loop_(std::move(loop)), mail_(std::move(mail)) {}

  Loop& MessageLoop() const { return *loop_; }

 private:
  void Woken() noexcept override { mail_->StopWaiting(); }

  const std::shared_ptr<Loop> loop_;
  const std::shared_ptr<SendMailCls> mail_;
};

MailSpool::MailSpool()
    : mail_(std::make_shared<SendMailCls>()),
      call_(std::make_shared<CallState>()),
      stopper_(std::make_shared<SpoolStopper>(Loop::ForThread(), mail_)),
      retrySeconds_{5 * 60, 15 * 60, 30 * 60, 60 * 60} {}

MailSpool::~MailSpool() {
  call_->Die();
  mail_->StopWaiting();
}

bool MailSpool::SetResult(std::int32_t result, std::string message) {
  result_ = result;
  resultMessage_ = std::move(message);
  return result == 0;
}

bool MailSpool::RetrySeconds(std::vector<std::int32_t> value) {
  constexpr std::int32_t kMost = 31 * 24 * 3600;
  const auto fits = [](std::int32_t seconds) { return seconds >= 1 && seconds <= kMost; };
  if (value.empty() || !std::ranges::all_of(value, fits)) {
    return SetResult(kErrInvalidArgument, "RetrySeconds needs numbers from 1 second to 31 days.");
  }
  retrySeconds_ = std::move(value);
  return SetResult(0, {});
}

bool MailSpool::DeliverDue(bool All) {
  const BusyScope busy(call_);
  if (busy.Refused()) return false;
  if (mail_->Simulation())
    return SetResult(kErrInvalidArgument, "With Simulation nothing would be delivered.");
  const auto call = call_;
  try {
    return SpoolRun(*this, All).Deliver();
  } catch (const std::bad_alloc&) {
    return call->alive && SetResult(kErrNoBuffers, SocketErrorText(kErrNoBuffers));
  }
}

std::vector<SpooledMail> MailSpool::List() {
  const LoopUse::Scope use(call_->use);
  if (use.Refused()) return {};
  std::vector<std::string> ids;
  std::vector<SpooledMail> mails;
  SetResult(0, {});
  if (const std::int32_t error = ListSpool(folder_, ids)) {
    SetResult(error, SpoolErrorText(error, folder_));
    return mails;
  }
  for (const std::string& id : ids) {
    SpoolItem item;
    const std::int32_t error = item.Open(folder_, id);
    if (error == 0) mails.push_back(item.Mail());
    if (error == 0 || SpoolItem::IsBad(error) || JournalFile::IsMissing(error)) continue;
    SetResult(error, SpoolErrorText(error, SpoolPath(folder_, id)));
  }
  return mails;
}

bool MailSpool::Remove(const std::string& Id) {
  const LoopUse::Scope use(call_->use);
  if (use.Refused()) return false;
  if (!IsSpoolId(Id))
    return SetResult(kErrInvalidArgument, "\"" + Id + "\" is no id of a message.");
  const std::string path = SpoolPath(folder_, Id);
  SpoolItem item;
  std::int32_t error = item.Claim(folder_, Id);
  if (JournalFile::IsTaken(error)) return SetResult(error, path + " is being delivered.");
  if (error == 0) error = RemoveFile(path);
  return SetResult(error, error == 0 ? std::string() : SpoolErrorText(error, path));
}

Date MailSpool::NextTry() {
  const LoopUse::Scope use(call_->use);
  if (use.Refused()) return 0;
  const Date now = WallClock();
  const SpoolSchedule schedule{retrySeconds_, limitSeconds_};
  Date next = 0;
  for (const SpooledMail& mail : List()) {
    // One that has nothing to try is to be reported or removed.
    const bool due = mail.NextTry == 0 || IsDue(schedule, mail.NextTry, now);
    const Date its = due ? std::min(mail.NextTry == 0 ? now : mail.NextTry, now) : mail.NextTry;
    next = next == 0 ? its : std::min(next, its);
  }
  return next;
}

void MailSpool::StopWaiting() {
  call_->Stop(stopper_->MessageLoop());
  stopper_->MessageLoop().Notify(*stopper_);
}

void MailSpool::Kill() { StopWaiting(); }

}  // namespace netro
