// The notification window on Linux: an epoll set, an eventfd that other threads wake it with, and a
// timerfd for the loop's next timer.
//
// Stream and datagram sockets are watched edge-triggered: the system tells once that something
// became readable or writable, and the registration remembers it until a call finds the opposite
// (`readable` until a receive comes back empty, `wantsWrite` from a send that would have blocked to
// the next writable edge). Listeners are one-shot and re-armed by Accept. So an event costs the
// same however many sockets are idle, and nothing is asked twice.
//
// Order for one socket: Connect, Write, Accept, Read, Close. Close waits until `readable` is false:
// a hang-up with unread bytes behind it becomes Close when Receive meets the end. A hang-up without
// unread bytes (a peek tells) is Close at once, also when the owner is not reading.
#include "platform/Notifier.h"

#include <netinet/in.h>
#include <poll.h>
#include <sys/epoll.h>
#include <sys/socket.h>
#include <sys/timerfd.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <deque>
#include <optional>
#include <unordered_map>
#include <utility>

#include "platform/ErrorNumbers.h"
#include "platform/Process.h"
#include "platform/linux/Descriptor.h"

namespace netro {
namespace {

enum PendingBit : unsigned {
  kConnect = 1,
  kWrite = 2,
  kAccept = 4,
  kRead = 8,
  kClose = 16,
};

constexpr struct {
  unsigned bit;
  SocketEvent event;
} kOrder[] = {
    {kConnect, SocketEvent::Connect}, {kWrite, SocketEvent::Write}, {kAccept, SocketEvent::Accept},
    {kRead, SocketEvent::Read},       {kClose, SocketEvent::Close},
};

struct Registration {
  std::uint64_t number = 0;
  std::int32_t handle = 0;
  SocketKind kind = SocketKind::Stream;
  SocketWatcher* watcher = nullptr;
  bool connecting = false;
  bool readable = false;
  bool readToEnd = false;  // a short read does not tell that nothing is left
  bool awaited = false;    // a blocking call ends by its reads
  bool held = false;
  bool wantsWrite = false;
  bool ended = false;  // Close has been queued
  bool queued = false;
  unsigned pending = 0;
  std::int32_t connectError = 0;
  std::int32_t closeError = 0;
};

constexpr std::size_t kDatagramRoom = 128'000;
constexpr int kEventsAtOnce = 256;
constexpr int kBlindSleep = 10;  // milliseconds

// A registration number holds the descriptor for the look-up and a serial that tells its users
// apart. Serials start at 1, so the small numbers are free for the loop's own descriptors.
constexpr std::uint64_t kWakeKey = 1;
constexpr std::uint64_t kAlarmKey = 2;
constexpr std::uint32_t kStreamEvents = EPOLLIN | EPOLLOUT | EPOLLPRI | EPOLLRDHUP | EPOLLET;
constexpr std::uint32_t kListenEvents = EPOLLIN | EPOLLONESHOT;
constexpr std::uint32_t kDatagramEvents = EPOLLIN | EPOLLOUT | EPOLLET;

void CloseIfOpen(int& descriptor) {
  if (descriptor >= 0) close(descriptor);
  descriptor = -1;
}

int SleepMilliseconds(TimePoint until) {
  if (until == TimePoint::max()) return -1;
  const auto left = std::chrono::ceil<std::chrono::milliseconds>(until - Now()).count();
  return static_cast<int>(std::clamp<std::int64_t>(left, 0, 3'600'000));
}

}  // namespace

struct Notifier::State {
  int epoll = -1;
  std::shared_ptr<Waker> waker = std::make_shared<Waker>();
  int alarm = -1;
  int process = 0;  // that opened the epoll set; the child of a fork shares it
  TimePoint alarmAt = TimePoint::max();
  std::uint64_t serial = 0;
  std::unordered_map<std::int32_t, Registration> watched;
  std::deque<std::uint64_t> queue;  // registration numbers with something pending
  std::unique_ptr<std::uint8_t[]> datagramRoom;
  std::deque<std::uint64_t> held;  // those whose reads wait for the pumps to be less nested

  Registration* Find(std::int32_t handle) {
    const auto found = watched.find(handle);
    return found == watched.end() ? nullptr : &found->second;
  }

  Registration* FindNumber(std::uint64_t number) {
    Registration* found = Find(static_cast<std::int32_t>(number & 0xFFFFFFFF));
    return found != nullptr && found->number == number ? found : nullptr;
  }

  bool Control(int operation, int descriptor, std::uint32_t events, std::uint64_t key) {
    epoll_event request{};
    request.events = events;
    request.data.u64 = key;
    return epoll_ctl(epoll, operation, descriptor, &request) == 0;
  }

  void Queue(Registration& to, unsigned bits) {
    to.pending |= bits;
    if (to.queued) return;
    to.queued = true;
    queue.push_back(to.number);
  }

  void Hold(Registration& of) {
    if (!std::exchange(of.held, true)) held.push_back(of.number);
  }

  // The peer is gone and nothing is left to read.
  void End(Registration& of, std::int32_t error) {
    of.readable = false;
    if (of.ended || of.kind != SocketKind::Stream) return;
    of.ended = true;
    if (of.closeError == 0) of.closeError = error;
    Queue(of, kClose);
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
    Queue(of, kConnect);
  }

  void NoteHangUp(Registration& of) {
    of.readToEnd = true;
    std::uint8_t byte = 0;
    const ssize_t left = recv(of.handle, &byte, 1, MSG_PEEK | MSG_DONTWAIT);
    if (left > 0) {
      of.readable = true;
      Queue(of, kRead);
    } else if (left == 0 || errno != EAGAIN) {
      End(of, left == 0 ? 0 : SocketErrorNumber(errno));
    }
  }

  void Note(Registration& of, std::uint32_t events) {
    if (of.kind == SocketKind::Listener) return Queue(of, kAccept);
    constexpr std::uint32_t kGone = EPOLLRDHUP | EPOLLHUP | EPOLLERR;
    if (of.connecting) {
      if ((events & (EPOLLOUT | kGone)) == 0) return;
      FinishConnect(of);
      if (of.connectError != 0) return;
    }
    if ((events & EPOLLOUT) != 0 && of.wantsWrite) {
      of.wantsWrite = false;
      Queue(of, kWrite);
    }
    if ((events & EPOLLPRI) != 0) of.readToEnd = true;  // a read stops at urgent data
    if (of.kind == SocketKind::Stream && (events & kGone) != 0) return NoteHangUp(of);
    if ((events & (EPOLLIN | EPOLLERR)) != 0 && !of.ended) {
      of.readable = true;
      Queue(of, kRead);
    }
  }

  void Take(const epoll_event& event) {
    std::uint64_t ticks = 0;
    if (event.data.u64 == kWakeKey) {
      waker->Clear();
    } else if (event.data.u64 == kAlarmKey) {
      (void)!read(alarm, &ticks, sizeof ticks);
    } else if (Registration* of = FindNumber(event.data.u64)) {
      Note(*of, event.events);
    }
  }

  Registration& Add(std::int32_t handle, SocketKind kind, SocketWatcher& watcher) {
    Registration& added = watched[handle];
    added = Registration{};
    added.number = ++serial << 32 | static_cast<std::uint32_t>(handle);
    added.handle = handle;
    added.kind = kind;
    added.watcher = &watcher;
    return added;
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
  const int wake = s.epoll >= 0 ? s.waker->Open() : -1;
  if (wake >= 0) {
    s.alarm = AwayFromZero(timerfd_create(CLOCK_MONOTONIC, TFD_CLOEXEC | TFD_NONBLOCK));
  }
  if (s.alarm >= 0 && s.Control(EPOLL_CTL_ADD, wake, EPOLLIN, kWakeKey) &&
      s.Control(EPOLL_CTL_ADD, s.alarm, EPOLLIN, kAlarmKey)) {
    s.process = ProcessId();
    SetAlarm(s.alarmAt);
    return 0;
  }
  const std::int32_t error = SocketErrorNumber(errno);
  CloseIfOpen(s.alarm);
  CloseIfOpen(s.epoll);
  return error;
}

int Notifier::Fd() const { return state_->epoll; }

void Notifier::Wake() { state_->waker->Wake(); }

std::shared_ptr<Waker> Notifier::SharedWaker() const { return state_->waker; }

void Notifier::SetAlarm(TimePoint when) {
  state_->alarmAt = when;
  itimerspec setting{};
  if (when != TimePoint::max()) {
    const auto left = std::max<std::chrono::nanoseconds>(when - Now(), std::chrono::nanoseconds(1));
    setting.it_value.tv_sec = static_cast<time_t>(left.count() / 1'000'000'000);
    setting.it_value.tv_nsec = static_cast<long>(left.count() % 1'000'000'000);
  }
  timerfd_settime(state_->alarm, 0, &setting, nullptr);
}

void Notifier::Collect(TimePoint until) {
  epoll_event events[kEventsAtOnce];
  const bool sleep = state_->queue.empty() && until != TimePoint::min();
  const int limit = sleep ? SleepMilliseconds(until) : 0;
  if (Open() != 0) {  // without a descriptor left, time still passes
    poll(nullptr, 0, limit < 0 ? kBlindSleep : std::min(limit, kBlindSleep));
    return;
  }
  // Everything that is there, so that a host may watch the descriptor edge-triggered; but not what
  // busy peers add meanwhile, which would never end.
  const std::size_t rounds = 1 + state_->watched.size() / kEventsAtOnce;
  int count = kEventsAtOnce;
  for (std::size_t round = 0; round < rounds && count == kEventsAtOnce; ++round) {
    count = epoll_wait(state_->epoll, events, kEventsAtOnce, round == 0 ? limit : 0);
    for (int i = 0; i < count; ++i) state_->Take(events[i]);
  }
}

std::size_t Notifier::Pending() const { return state_->queue.size(); }

void Notifier::DeliverOne(bool holdReads) {
  State& s = *state_;
  if (s.queue.empty()) return;
  const std::uint64_t number = s.queue.front();
  s.queue.pop_front();
  Registration* of = s.FindNumber(number);
  if (of == nullptr) return;
  of->queued = false;
  for (const auto& [bit, event] : kOrder) {
    if ((of->pending & bit) == 0) continue;
    if (holdReads && !of->awaited && (bit & (kRead | kAccept)) != 0) return s.Hold(*of);
    of->pending &= ~bit;
    // What is left goes back to the queue first: the function called may wait for it.
    if (of->pending != 0) s.Queue(*of, 0);
    of->watcher->OnSocket(of->handle, event, bit == kClose ? of->closeError : of->connectError);
    of = s.FindNumber(number);
    if (of == nullptr || of->pending == 0) return;
  }
}

void Notifier::TakeBackHeld() {
  State& s = *state_;
  for (; !s.held.empty(); s.held.pop_front()) {
    Registration* of = s.FindNumber(s.held.front());
    if (of == nullptr) continue;
    of->held = false;
    s.Queue(*of, 0);
  }
}

bool Notifier::HasHeld() const { return !state_->held.empty(); }

void Notifier::SetAwaited(std::int32_t handle) {
  if (Registration* of = state_->Find(handle)) of->awaited = true;
}

std::int32_t Notifier::Watch(std::int32_t handle, SocketKind kind, SocketWatcher& watcher) {
  Registration& added = state_->Add(handle, kind, watcher);
  if (kind != SocketKind::Datagram) return 0;
  if (state_->Control(EPOLL_CTL_ADD, handle, kDatagramEvents, added.number)) return 0;
  const std::int32_t error = SocketErrorNumber(errno);
  state_->watched.erase(handle);
  return error;
}

void Notifier::Unwatch(std::int32_t handle) {
  if (state_->watched.erase(handle) == 0) return;
  // In the child of a fork the set is the parent's, which goes on watching its own socket.
  if (state_->process == ProcessId()) epoll_ctl(state_->epoll, EPOLL_CTL_DEL, handle, nullptr);
}

void Notifier::Renew(std::int32_t handle) {
  Registration* of = state_->Find(handle);
  if (of == nullptr) return;
  if (of->kind == SocketKind::Listener) {
    state_->Control(EPOLL_CTL_MOD, handle, kListenEvents, of->number);
    return;
  }
  state_->Queue(*of, kRead);
}

void Notifier::RenewWrite(std::int32_t handle) {
  Registration* of = state_->Find(handle);
  if (of == nullptr || of->connecting) return;
  state_->Queue(*of, kWrite);
  of->wantsWrite = false;  // this one is it
}

std::int32_t Notifier::Connect(std::int32_t handle, const SocketAddress& address) {
  Registration* of = state_->Find(handle);
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
  state_->Queue(*of, kConnect);
  Wake();
  return kSocketError;
}

std::int32_t Notifier::Listen(std::int32_t handle, int backlog) {
  const Registration* of = state_->Find(handle);
  if (of == nullptr) return kErrNotSocket;
  if (listen(handle, backlog) == 0 &&
      state_->Control(EPOLL_CTL_ADD, handle, kListenEvents, of->number)) {
    return 0;
  }
  return SocketErrorNumber(errno);
}

std::int32_t Notifier::Accept(std::int32_t listener, std::int32_t& error) {
  Registration* of = state_->Find(listener);
  error = kErrNotSocket;
  if (of == nullptr || of->kind != SocketKind::Listener) return 0;
  const int made = AwayFromZero(accept4(listener, nullptr, nullptr, SOCK_NONBLOCK | SOCK_CLOEXEC));
  error = made < 0 ? SocketErrorNumber(errno) : 0;
  // Without descriptors the listener would notify for ever: its owner renews it after a pause.
  if (error != kErrTooManyFiles && error != kErrNoBuffers) Renew(listener);
  if (made < 0) return 0;
  Registration& added = state_->Add(made, SocketKind::Stream, *of->watcher);
  added.wantsWrite = true;
  if (state_->Control(EPOLL_CTL_ADD, made, kStreamEvents, added.number)) return made;
  error = SocketErrorNumber(errno);
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
  if (Registration* of = state_->Find(handle)) of->wantsWrite = true;
}

std::span<std::uint8_t> Notifier::DatagramRoom() {
  auto& room = state_->datagramRoom;
  if (room == nullptr) room = std::make_unique_for_overwrite<std::uint8_t[]>(kDatagramRoom);
  return {room.get(), kDatagramRoom};
}

std::ptrdiff_t Notifier::Receive(std::int32_t handle, std::span<std::uint8_t> room,
                                 std::int32_t& error, SocketAddress* from) {
  Registration* of = state_->Find(handle);
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
    if (got == 0) state_->End(*of, 0);
    // A short read has emptied the socket; what comes later, an end included, is a new edge.
    if (got > 0 && got < static_cast<ssize_t>(room.size()) && !of->readToEnd) of->readable = false;
    if (got < 0 && error != kErrWouldBlock) state_->End(*of, error);
  }
  if (error == kErrWouldBlock) of->readable = false;
  // Read again after a receive, for whoever pumps before the next one; without a need for it, the
  // notification is taken back.
  of->pending &= ~static_cast<unsigned>(kRead);
  if (of->readable && of->kind == SocketKind::Stream) state_->Queue(*of, kRead);
  if (got > static_cast<ssize_t>(room.size())) {
    error = kErrMessageTooLong;
    return -1;
  }
  return got;
}

}  // namespace netro
