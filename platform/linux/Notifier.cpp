// The notification window on Linux: an epoll set, an eventfd that other threads wake it with, and a
// timerfd for the loop's next timer. The loop's own sleep ends by its time-out; the timerfd is for
// hosts that watch the descriptor, and costs nothing until one has asked for it.
//
// Stream and datagram sockets are watched edge-triggered: the system tells once that something
// became readable or writable, and the registration remembers it until a call finds the opposite
// (`readable` until a receive comes back empty, `wantsWrite` from a send that would have blocked to
// the next writable edge). Listeners are one-shot and re-armed by Accept. So an event costs the
// same however many sockets are idle, and nothing is asked twice.
//
// Close waits until `readable` is false: a hang-up with unread bytes behind it becomes Close when
// Receive meets the end. A hang-up without unread bytes (a peek tells) is Close at once, also when
// the owner is not reading.
#include "platform/Notifier.h"

#include <netinet/in.h>
#include <poll.h>
#include <sys/epoll.h>
#include <sys/socket.h>
#include <sys/timerfd.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <new>
#include <optional>
#include <utility>

#include "platform/ErrorNumbers.h"
#include "platform/NotificationQueue.h"
#include "platform/Process.h"
#include "platform/linux/Descriptor.h"

namespace netro {
namespace {

using Registration = NotificationQueue::Registration;

constexpr std::size_t kDatagramRoom = 128'000;
constexpr int kEventsAtOnce = 256;
constexpr std::chrono::nanoseconds kBlindSleep = std::chrono::milliseconds(10);

// The loop's own descriptors have the numbers that registrations leave free.
constexpr std::uint64_t kWakeKey = 1;
constexpr std::uint64_t kAlarmKey = 2;
constexpr std::uint32_t kStreamEvents = EPOLLIN | EPOLLOUT | EPOLLPRI | EPOLLRDHUP | EPOLLET;
constexpr std::uint32_t kListenEvents = EPOLLIN | EPOLLONESHOT;
constexpr std::uint32_t kDatagramEvents = EPOLLIN | EPOLLOUT | EPOLLET;
constexpr std::uint32_t kAlarmEvents = EPOLLIN | EPOLLET;  // told once, it need not be read

void CloseIfOpen(int& descriptor) {
  if (descriptor >= 0) close(descriptor);
  descriptor = -1;
}

constexpr std::chrono::nanoseconds kNoLimit(-1);
constexpr std::chrono::nanoseconds kLongestSleep = std::chrono::hours(1);

std::chrono::nanoseconds SleepTime(TimePoint until) {
  if (until == TimePoint::max()) return kNoLimit;
  return std::clamp<std::chrono::nanoseconds>(SleepFor(until - Now()), std::chrono::nanoseconds(0),
                                              kLongestSleep);
}

timespec ToTimespec(std::chrono::nanoseconds time) {
  return {static_cast<time_t>(time.count() / 1'000'000'000),
          static_cast<long>(time.count() % 1'000'000'000)};
}

int WholeMilliseconds(std::chrono::nanoseconds time) {
  if (time == kNoLimit) return -1;
  return static_cast<int>(std::chrono::ceil<std::chrono::milliseconds>(time).count());
}

}  // namespace

struct Notifier::State {
  int epoll = -1;
  std::shared_ptr<Waker> waker = std::make_shared<Waker>();
  int alarm = -1;
  int process = 0;  // that opened the epoll set; the child of a fork shares it
  TimePoint alarmAt = TimePoint::max();
  bool isWatched = false;  // a host may: it was given the descriptor
  // Until a system before Linux 5.11, or a container's rules, refuse nanoseconds.
  bool sleepsFinely = true;
  NotificationQueue queue;
  std::unique_ptr<std::uint8_t[]> datagramRoom;

  void SetAlarm() const {
    itimerspec setting{};
    if (alarmAt != TimePoint::max()) {
      setting.it_value = ToTimespec(std::max<std::chrono::nanoseconds>(
          SleepFor(alarmAt - Now()), std::chrono::nanoseconds(1)));
    }
    timerfd_settime(alarm, 0, &setting, nullptr);
  }

  int Wait(epoll_event* events, std::chrono::nanoseconds limit) {
    if (sleepsFinely) {
      const timespec time = ToTimespec(limit);
      const int count =
          epoll_pwait2(epoll, events, kEventsAtOnce, limit == kNoLimit ? nullptr : &time, nullptr);
      if (count >= 0 || errno == EINTR) return count;
      sleepsFinely = false;
    }
    return epoll_wait(epoll, events, kEventsAtOnce, WholeMilliseconds(limit));
  }

  bool Control(int operation, int descriptor, std::uint32_t events, std::uint64_t key) {
    epoll_event request{};
    request.events = events;
    request.data.u64 = key;
    return epoll_ctl(epoll, operation, descriptor, &request) == 0;
  }

  void FinishConnect(Registration& of) {
    int error = 0;
    socklen_t size = sizeof error;
    getsockopt(of.handle, SOL_SOCKET, SO_ERROR, &error, &size);
    of.connecting = false;
    // Only an open connection can be reset: the peer has accepted, perhaps sent, and reset before
    // we looked. What it sent is still to be read.
    if (error == ECONNRESET || error == EPIPE) {
      of.closeError = SocketErrorNumber(std::exchange(error, 0));
    }
    of.connectError = SocketErrorNumber(error);
    of.wantsWrite = error == 0;
    of.ended = error != 0;
    queue.Queue(of, kConnect);
  }

  void NoteHangUp(Registration& of) {
    of.readToEnd = true;
    std::uint8_t byte = 0;
    const ssize_t left = recv(of.handle, &byte, 1, MSG_PEEK | MSG_DONTWAIT);
    if (left > 0) {
      of.readable = true;
      queue.Queue(of, kRead);
    } else if (left == 0 || errno != EAGAIN) {
      queue.End(of, left == 0 ? 0 : SocketErrorNumber(errno));
    }
  }

  void Note(Registration& of, std::uint32_t events) {
    if (of.kind == SocketKind::Listener) return queue.Queue(of, kAccept);
    constexpr std::uint32_t kGone = EPOLLRDHUP | EPOLLHUP | EPOLLERR;
    if (of.connecting) {
      if ((events & (EPOLLOUT | kGone)) == 0) return;
      FinishConnect(of);
      if (of.connectError != 0) return;
    }
    if ((events & EPOLLOUT) != 0 && of.wantsWrite) {
      of.wantsWrite = false;
      queue.Queue(of, kWrite);
    }
    if ((events & EPOLLPRI) != 0) of.readToEnd = true;  // a read stops at urgent data
    if (of.kind == SocketKind::Stream && (events & kGone) != 0) return NoteHangUp(of);
    if ((events & (EPOLLIN | EPOLLERR)) != 0 && !of.ended) {
      of.readable = true;
      queue.Queue(of, kRead);
    }
  }

  void Take(const epoll_event& event) {
    if (event.data.u64 == kWakeKey) {
      waker->Clear();
    } else if (Registration* of = queue.FindNumber(event.data.u64)) {
      Note(*of, event.events);
    }
  }
};

Notifier::Notifier() : state_(std::make_unique<State>()) { Open(); }

Notifier::~Notifier() {
  CloseIfOpen(state_->alarm);
  CloseIfOpen(state_->epoll);
}

std::int32_t Notifier::Open() {
  State& s = *state_;
  if (s.epoll >= 0) return 0;
  s.epoll = AwayFromZero(epoll_create1(EPOLL_CLOEXEC));
  const int wake = s.epoll >= 0 ? static_cast<int>(s.waker->Open()) : -1;
  if (wake >= 0) {
    s.alarm = AwayFromZero(timerfd_create(CLOCK_MONOTONIC, TFD_CLOEXEC | TFD_NONBLOCK));
  }
  if (s.alarm >= 0 && s.Control(EPOLL_CTL_ADD, wake, EPOLLIN, kWakeKey) &&
      s.Control(EPOLL_CTL_ADD, s.alarm, kAlarmEvents, kAlarmKey)) {
    s.process = ProcessId();
    SetAlarm(s.alarmAt);
    return 0;
  }
  const std::int32_t error = SocketErrorNumber(errno);
  CloseIfOpen(s.alarm);
  CloseIfOpen(s.epoll);
  return error;
}

int Notifier::Fd() const {
  if (!std::exchange(state_->isWatched, true)) state_->SetAlarm();
  return state_->epoll;
}

void Notifier::Wake() { state_->waker->Wake(); }

std::shared_ptr<Waker> Notifier::SharedWaker() const { return state_->waker; }

void Notifier::SetAlarm(TimePoint when) {
  state_->alarmAt = when;
  if (state_->isWatched) state_->SetAlarm();
}

void Notifier::Collect(TimePoint until) {
  epoll_event events[kEventsAtOnce];
  const bool sleep = state_->queue.Pending() == 0 && until != TimePoint::min();
  const auto limit = sleep ? SleepTime(until) : std::chrono::nanoseconds(0);
  if (Open() != 0) {  // without a descriptor left, time still passes
    poll(nullptr, 0,
         WholeMilliseconds(limit == kNoLimit ? kBlindSleep : std::min(limit, kBlindSleep)));
    return;
  }
  // Everything that is there, so that a host may watch the descriptor edge-triggered; but not what
  // busy peers add meanwhile, which would never end.
  const std::size_t rounds = 1 + state_->queue.Sockets() / kEventsAtOnce;
  int count = kEventsAtOnce;
  for (std::size_t round = 0; round < rounds && count == kEventsAtOnce; ++round) {
    count = state_->Wait(events, round == 0 ? limit : std::chrono::nanoseconds(0));
    for (int i = 0; i < count; ++i) state_->Take(events[i]);
  }
}

std::size_t Notifier::Pending() const { return state_->queue.Pending(); }

void Notifier::DeliverOne(bool holdReads) { state_->queue.DeliverOne(holdReads); }

void Notifier::TakeBackHeld() { state_->queue.TakeBackHeld(); }

bool Notifier::HoldsReads() const { return state_->queue.HoldsReads(); }

void Notifier::HoldBack(std::int32_t handle) { state_->queue.HoldBack(handle); }

bool Notifier::HasHeld() const { return state_->queue.HasHeld(); }

void Notifier::SetAwaited(std::int32_t handle) {
  if (Registration* of = state_->queue.Find(handle)) of->awaited = true;
}

std::int32_t Notifier::Watch(std::int32_t handle, SocketKind kind, SocketWatcher& watcher) {
  Registration& added = state_->queue.Add(handle, kind, watcher);
  if (kind != SocketKind::Datagram) return 0;
  if (state_->Control(EPOLL_CTL_ADD, handle, kDatagramEvents, added.number)) return 0;
  const std::int32_t error = SocketErrorNumber(errno);
  state_->queue.Remove(handle);
  return error;
}

void Notifier::Unwatch(std::int32_t handle) {
  if (!state_->queue.Remove(handle)) return;
  // In the child of a fork the set is the parent's, which goes on watching its own socket.
  if (state_->process == ProcessId()) epoll_ctl(state_->epoll, EPOLL_CTL_DEL, handle, nullptr);
}

void Notifier::Renew(std::int32_t handle) {
  Registration* of = state_->queue.Find(handle);
  if (of == nullptr) return;
  if (of->kind == SocketKind::Listener) {
    state_->Control(EPOLL_CTL_MOD, handle, kListenEvents, of->number);
    return;
  }
  state_->queue.Queue(*of, kRead);
}

void Notifier::RenewWrite(std::int32_t handle) {
  Registration* of = state_->queue.Find(handle);
  if (of == nullptr || of->connecting) return;
  state_->queue.Queue(*of, kWrite);
  of->wantsWrite = false;  // this one is it
}

std::int32_t Notifier::Connect(std::int32_t handle, const SocketAddress& address) {
  Registration* of = state_->queue.Find(handle);
  if (of == nullptr) return kErrNotSocket;
  const SystemAddress name = ToSystem(address);
  const bool started =
      connect(handle, name.Generic(), name.size) == 0 || errno == EINPROGRESS || errno == EINTR;
  of->connecting = true;
  if (started && state_->Control(EPOLL_CTL_ADD, handle, kStreamEvents, of->number)) {
    return kSocketError;
  }
  of->connecting = false;
  of->ended = true;
  of->connectError = SocketErrorNumber(errno);
  state_->queue.Queue(*of, kConnect);
  Wake();
  return kSocketError;
}

std::int32_t Notifier::Listen(std::int32_t handle, int backlog) {
  const Registration* of = state_->queue.Find(handle);
  if (of == nullptr) return kErrNotSocket;
  if (listen(handle, backlog) == 0 &&
      state_->Control(EPOLL_CTL_ADD, handle, kListenEvents, of->number)) {
    return 0;
  }
  return SocketErrorNumber(errno);
}

std::int32_t Notifier::Accept(std::int32_t listener, std::int32_t& error) {
  Registration* of = state_->queue.Find(listener);
  error = kErrNotSocket;
  if (of == nullptr || of->kind != SocketKind::Listener) return 0;
  const int made = AwayFromZero(accept4(listener, nullptr, nullptr, SOCK_NONBLOCK | SOCK_CLOEXEC));
  error = made < 0 ? SocketErrorNumber(errno) : 0;
  // Without descriptors the listener would notify for ever: its owner renews it after a pause.
  if (error != kErrTooManyFiles && error != kErrNoBuffers) Renew(listener);
  if (made < 0) return 0;
  try {
    Registration& added = state_->queue.Add(made, SocketKind::Stream, *of->watcher);
    added.wantsWrite = true;
    if (state_->Control(EPOLL_CTL_ADD, made, kStreamEvents, added.number)) return made;
    error = SocketErrorNumber(errno);
  } catch (const std::bad_alloc&) {
    error = kErrNoBuffers;
  }
  Unwatch(made);
  CloseSocket(made);
  return 0;
}

std::ptrdiff_t Notifier::Send(std::int32_t handle, std::span<const std::uint8_t> data,
                              std::int32_t& error, const SocketAddress* to) {
  std::optional<SystemAddress> name;
  if (to != nullptr) name = ToSystem(*to);
  ssize_t sent = 0;
  do {
    sent = sendto(handle, data.data(), data.size(), MSG_NOSIGNAL | MSG_DONTWAIT,
                  name ? name->Generic() : nullptr, name ? name->size : 0);
  } while (sent < 0 && errno == EINTR);
  error = sent < 0 ? SocketErrorNumber(errno) : 0;
  if (error == kErrWouldBlock) AwaitRoom(handle);
  return sent;
}

void Notifier::AwaitRoom(std::int32_t handle) {
  if (Registration* of = state_->queue.Find(handle)) of->wantsWrite = true;
}

std::span<std::uint8_t> Notifier::DatagramRoom() {
  auto& room = state_->datagramRoom;
  if (room == nullptr) room = std::make_unique_for_overwrite<std::uint8_t[]>(kDatagramRoom);
  return {room.get(), kDatagramRoom};
}

std::ptrdiff_t Notifier::Receive(std::int32_t handle, std::span<std::uint8_t> room,
                                 std::int32_t& error, SocketAddress* from) {
  Registration* of = state_->queue.Find(handle);
  error = kErrWouldBlock;
  if (of == nullptr || !of->readable) return of != nullptr && of->ended ? 0 : -1;
  std::optional<SystemAddress> name;
  if (from != nullptr) name.emplace();
  const int flags = MSG_DONTWAIT | (of->kind == SocketKind::Datagram ? MSG_TRUNC : 0);
  ssize_t got = 0;
  do {
    got = recvfrom(handle, room.data(), room.size(), flags, name ? name->Generic() : nullptr,
                   name ? &name->size : nullptr);
  } while (got < 0 && errno == EINTR);
  error = got < 0 ? SocketErrorNumber(errno) : 0;
  if (name) *from = FromSystem(*name);
  if (of->kind == SocketKind::Stream) {
    if (got == 0) state_->queue.End(*of, 0);
    // A short read has emptied the socket; what comes later, an end included, is a new edge.
    if (got > 0 && got < static_cast<ssize_t>(room.size()) && !of->readToEnd) of->readable = false;
    if (got < 0 && error != kErrWouldBlock) state_->queue.End(*of, error);
  }
  if (error == kErrWouldBlock) of->readable = false;
  // Read again after a receive, for whoever pumps before the next one; without a need for it, the
  // notification is taken back.
  of->pending &= ~static_cast<unsigned>(kRead);
  if (of->readable && of->kind == SocketKind::Stream) state_->queue.Queue(*of, kRead);
  if (got > static_cast<ssize_t>(room.size())) {
    error = kErrMessageTooLong;
    return -1;
  }
  return got;
}

}  // namespace netro
