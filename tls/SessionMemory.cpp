#include "tls/SessionMemory.h"

#include <algorithm>
#include <ctime>
#include <utility>

namespace netro {
namespace {

constexpr std::size_t kMostPeers = 512;
constexpr std::size_t kMostOfAPeer = 8;
constexpr long kLongestLife = 24L * 60 * 60;

// Also the certificate that it stands for must not have expired meanwhile.
bool IsGood(const SSL_SESSION& session) {
  const long age = static_cast<long>(std::time(nullptr)) - SSL_SESSION_get_time(&session);
  const long life = std::min(SSL_SESSION_get_timeout(&session), kLongestLife);
  const X509* peer = SSL_SESSION_get0_peer(const_cast<SSL_SESSION*>(&session));
  return age >= 0 && age < life && SSL_SESSION_is_resumable(&session) == 1 &&
         (peer == nullptr || X509_cmp_current_time(X509_get0_notAfter(peer)) > 0);
}

}  // namespace

void SessionMemory::Keep(const std::string& key, SslSession session) {
  const std::lock_guard lock(mutex_);
  Peer& peer = peers_[key];
  peer.used = ++clock_;
  if (SSL_SESSION_get_protocol_version(session.get()) < TLS1_3_VERSION) peer.sessions.clear();
  if (peer.sessions.size() == kMostOfAPeer) peer.sessions.erase(peer.sessions.begin());
  peer.sessions.push_back(std::move(session));
  if (peers_.size() > kMostPeers) ForgetOldest();
}

SslSession SessionMemory::Take(const std::string& key) {
  const std::lock_guard lock(mutex_);
  const auto found = peers_.find(key);
  if (found == peers_.end()) return nullptr;
  Peer& peer = found->second;
  peer.used = ++clock_;
  SslSession session;
  while (session == nullptr && !peer.sessions.empty()) {
    session = std::move(peer.sessions.back());
    peer.sessions.pop_back();
    if (!IsGood(*session)) session.reset();
  }
  if (session != nullptr && SSL_SESSION_get_protocol_version(session.get()) < TLS1_3_VERSION) {
    SSL_SESSION_up_ref(session.get());
    peer.sessions.emplace_back(session.get());
  }
  if (peer.sessions.empty()) peers_.erase(found);
  return session;
}

void SessionMemory::ForgetOldest() {
  peers_.erase(
      std::ranges::min_element(peers_, {}, [](const auto& entry) { return entry.second.used; }));
}

}  // namespace netro
