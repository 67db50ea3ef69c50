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
  const LoopUse::Scope use(watchpost->Use());
  if (use.Refused()) return false;
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

bool WatchpostCls::AddHost(const std::string& Name, const std::string& Host,
                           const std::string& Kind, const std::string& Parent) {
  return Guarded([&](Watchpost& post) {
    WatchTarget target;
    target.name = Name;
    target.host = Host;
    target.parent = Parent;
    return post.Add(std::move(target), Kind);
  });
}

bool WatchpostCls::RemoveHost(const std::string& Name) {
  return Guarded([&](Watchpost& post) { return post.Remove(Name); });
}

const std::shared_ptr<TlsProvider>& WatchpostCls::Tls() const { return watchpost_->Tls(); }

void WatchpostCls::Tls(std::shared_ptr<TlsProvider> value) { watchpost_->Tls(std::move(value)); }

std::int32_t WatchpostCls::GetStatus() const { return watchpost_->Status(); }

std::int32_t WatchpostCls::HostCount() const {
  const LoopUse::Scope use(watchpost_->Use());
  if (use.Refused()) return 0;
  return static_cast<std::int32_t>(watchpost_->List().Size());
}

WatchedHost WatchpostCls::HostAt(std::int32_t Index) const {
  const LoopUse::Scope use(watchpost_->Use());
  if (use.Refused()) return {};
  return watchpost_->HostAt(static_cast<std::size_t>(Index));
}

WatchedPast WatchpostCls::PastAt(std::int32_t Index) const {
  const LoopUse::Scope use(watchpost_->Use());
  if (use.Refused()) return {};
  return watchpost_->PastAt(static_cast<std::size_t>(Index));
}

std::int32_t WatchpostCls::MailsWaiting() const {
  const LoopUse::Scope use(watchpost_->Use());
  return use.Refused() ? 0 : watchpost_->Reports().MailsWaiting();
}

std::int32_t WatchpostCls::ReportsUntried() const {
  const LoopUse::Scope use(watchpost_->Use());
  return use.Refused() ? 0 : watchpost_->Reports().Untried();
}

std::int32_t WatchpostCls::LastErr() const { return watchpost_->LastErr(); }

const std::string& WatchpostCls::LastErrMsg() const { return watchpost_->LastErrMsg(); }

void WatchpostCls::Kill() {
  Guarded([](Watchpost& post) {
    post.GiveUp();
    return true;
  });
}

}  // namespace netro
