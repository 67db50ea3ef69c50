#include "socket/DatagramPool.h"

#include <utility>

namespace netro {
namespace {

constexpr int kMostExchanges = 32;  // of one socket

}  // namespace

// Room is made now, so that handing on needs no memory.
DatagramPool::Lease::Lease(DatagramPool& pool) : pool_(pool) {
  auto& idle = pool_.idle_;
  if (pool_.running_ == idle.capacity()) idle.reserve(2 * pool_.running_ + 1);
  ++pool_.running_;
}

DatagramPool::Lease::~Lease() {
  --pool_.running_;
  if (pool_.idle_.size() > pool_.running_) pool_.idle_.pop_back();
}

std::int32_t DatagramPool::Lease::Open(std::shared_ptr<CallState> call, const SocketAddress& target,
                                       DatagramSocket::Filter wanted) {
  std::int32_t error = 0;
  auto& idle = pool_.idle_;
  if (!idle.empty() && idle.back()->Target() == target) {
    socket_ = std::move(idle.back());
    idle.pop_back();
  } else {
    socket_ = std::make_unique<DatagramSocket>(pool_.notifier_, nullptr);
    error = socket_->Open({.connected = true, .dated = pool_.dated_}, target);
  }
  if (error == 0) socket_->Begin(std::move(call), std::move(wanted));
  return error;
}

void DatagramPool::Lease::HandOn() {
  socket_->End();
  if (socket_->Exchanges() < kMostExchanges) pool_.idle_.push_back(std::move(socket_));
}

}  // namespace netro
