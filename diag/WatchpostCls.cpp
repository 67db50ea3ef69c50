// WatchpostCls: the public face of Watchpost.
#include <netro/WatchpostCls.h>

#include <new>

#include "diag/Watchpost.h"

namespace netro {

WatchpostCls::WatchpostCls() : watchpost_(std::make_shared<Watchpost>(*this)) {}

WatchpostCls::~WatchpostCls() { watchpost_->Abandon(); }

// The Watchpost outlives an event that deletes this object.
template <class Call>
bool WatchpostCls::Guarded(Call call) {
  const auto watchpost = watchpost_;
  try {
    return call(*watchpost);
  } catch (const std::bad_alloc&) {
    return watchpost->NoMemory();
  }
}

bool WatchpostCls::StartObservation() {
  return Guarded([this](Watchpost& post) { return post.Start(settingsName_); });
}

bool WatchpostCls::StopObservation() {
  return Guarded([](Watchpost& post) { return post.Stop(); });
}

bool WatchpostCls::PauseObservation() {
  return Guarded([](Watchpost& post) { return post.Pause(); });
}

bool WatchpostCls::ContinueObservation() {
  return Guarded([](Watchpost& post) { return post.Continue(); });
}

bool WatchpostCls::ObserveNow() {
  return Guarded([](Watchpost& post) { return post.Observe(); });
}

bool WatchpostCls::RefreshSettings() {
  return Guarded([this](Watchpost& post) { return post.Refresh(settingsName_); });
}

bool WatchpostCls::ResetWatchAt() {
  return Guarded([](Watchpost& post) { return post.Reset(); });
}

std::int32_t WatchpostCls::GetStatus() const { return watchpost_->Status(); }

std::int32_t WatchpostCls::HostCount() const {
  return static_cast<std::int32_t>(watchpost_->List().Size());
}

WatchedHost WatchpostCls::HostAt(std::int32_t Index) const {
  return watchpost_->HostAt(static_cast<std::size_t>(Index));
}

std::int32_t WatchpostCls::MailsWaiting() const {
  return static_cast<std::int32_t>(watchpost_->Mails().Waiting());
}

std::int32_t WatchpostCls::LastErr() const { return watchpost_->LastErr(); }

const std::string& WatchpostCls::LastErrMsg() const { return watchpost_->LastErrMsg(); }

void WatchpostCls::Kill() {
  watchpost_->Mails().GiveUp();
  if (GetStatus() != WatchpostStopped) StopObservation();
}

}  // namespace netro
