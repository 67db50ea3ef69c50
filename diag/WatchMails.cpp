#include "diag/WatchMails.h"

#include <netro/SendMailCls.h>

#include <cstdlib>
#include <exception>
#include <utility>

#include "platform/HelperThread.h"

namespace netro {
namespace {

// A server that is stuck must not gather mails, nor a pause their failures, without end.
constexpr std::size_t kMostMails = 10'000;
constexpr std::size_t kMostFailures = 1000;

}  // namespace

std::string WatchMails::Send(WatchMail mail) {
  const std::lock_guard lock(mutex_);
  if (mails_.size() == kMostMails) return "too many wait already.";
  mails_.push_back(std::move(mail));
  if (running_) return {};
  running_ = RunOnHelperThread([self = shared_from_this()] { self->Work(); });
  if (running_) return {};
  mails_.pop_back();
  return "no thread to send it.";
}

std::size_t WatchMails::Waiting() const {
  const std::lock_guard lock(mutex_);
  return mails_.size() + (underWay_ != nullptr ? 1 : 0);
}

std::vector<std::string> WatchMails::TakeFailures() {
  const std::lock_guard lock(mutex_);
  return std::exchange(failures_, {});
}

void WatchMails::GiveUp() {
  const std::lock_guard lock(mutex_);
  mails_.clear();
  if (underWay_ != nullptr) underWay_->Kill();
}

void WatchMails::Work() {
  for (;;) {
    SendMailCls sender;
    WatchMail mail;
    if (!Next(sender, mail)) return;
    std::string failure;
    try {
      failure = Deliver(sender, mail);
    } catch (const std::exception& problem) {
      failure = problem.what();
    }
    Done(std::move(failure));
  }
}

bool WatchMails::Next(SendMailCls& sender, WatchMail& mail) {
  const std::lock_guard lock(mutex_);
  running_ = !mails_.empty();
  if (!running_) return false;
  mail = std::move(mails_.front());
  mails_.pop_front();
  underWay_ = &sender;
  return true;
}

std::string WatchMails::Deliver(SendMailCls& sender, const WatchMail& mail) {
  const std::size_t colon = mail.server.find(':');
  sender.ReceiverHostName(mail.server.substr(0, colon));
  if (colon != std::string::npos) {
    sender.Port(static_cast<std::int32_t>(std::atoi(mail.server.c_str() + colon + 1)));
  }
  const bool sent =
      sender.NewTextMsg(mail.subject, mail.sender, mail.recipients, mail.text) && sender.SendMail();
  return sent ? std::string() : "Mail '" + mail.subject + "': " + sender.ResultMessage();
}

void WatchMails::Done(std::string failure) {
  const std::lock_guard lock(mutex_);
  underWay_ = nullptr;
  if (failure.empty() || failures_.size() == kMostFailures) return;
  failures_.push_back(std::move(failure));
}

}  // namespace netro
