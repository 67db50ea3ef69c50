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
#include <iterator>
#include <list>
#include <new>
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

// A line of registration numbers in which everyone has brought his own place, so that nobody is
// forgotten where memory has run out.
using Line = std::list<std::uint64_t>;

struct Registration {
  std::uint64_t number = 0;
  Line place;      // in the queue, while not queued
  Line heldPlace;  // among the held, while not held
  std::int32_t handle = 0;
  SocketKind kind = SocketKind::Stream;
  SocketWatcher* watcher = nullptr;
  bool connecting = false;
  bool readable = false;
  bool readToEnd = false;  // a short read does not tell that nothing is left
  bool awaited = false;    // a blocking call ends by its reads
  bool wantsWrite = false;
  bool ended = false;  // Close has been queued
  unsigned pending = 0;
  std::int32_t connectError = 0;
  std::int32_t closeError = 0;
};

constexpr std::size_t kDatagramRoom = 128'000;
constexpr int kEventsAtOnce = 256;
constexpr std::chrono::nanoseconds kBlindSleep = std::chrono::milliseconds(10);

// A registration number holds the descriptor for the look-up and a serial that tells its users
// apart. Serials start at 1, so the small numbers are free for the loop's own descriptors.
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

// What pumps inside an event set is put right after it.
class Holding {
 public:
  Holding(bool& holds, bool now) : holds_(holds), before_(std::exchange(holds, now)) {}
  ~Holding() { holds_ = before_; }
  Holding(const Holding&) = delete;
  Holding& operator=(const Holding&) = delete;

 private:
  bool& holds_;
  const bool before_;
};

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
  std::uint64_t serial = 0;
  std::unordered_map<std::int32_t, Registration> watched;
  Line queue;  // those with something pending
  std::unique_ptr<std::uint8_t[]> datagramRoom;
  bool holdsReads = false;
  Line held;  // those whose reads wait for the pumps to be less nested

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
    queue.splice(queue.end(), to.place);
  }

  void Hold(Registration& of) {
    held.splice(held.end(), of.heldPlace);
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
    if (event.data.u64 == kWakeKey) {
      waker->Clear();
    } else if (Registration* of = FindNumber(event.data.u64)) {
      Note(*of, event.events);
    }
  }

  Registration& Add(std::int32_t handle, SocketKind kind, SocketWatcher& watcher) {
    Registration added;
    added.number = ++serial << 32 | static_cast<std::uint32_t>(handle);
    added.place = added.heldPlace = {added.number};
    added.handle = handle;
    added.kind = kind;
    added.watcher = &watcher;
    return watched[handle] = std::move(added);
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
  const bool sleep = state_->queue.empty() && until != TimePoint::min();
  const auto limit = sleep ? SleepTime(until) : std::chrono::nanoseconds(0);
  if (Open() != 0) {  // without a descriptor left, time still passes
    poll(nullptr, 0,
         WholeMilliseconds(limit == kNoLimit ? kBlindSleep : std::min(limit, kBlindSleep)));
    return;
  }
  // Everything that is there, so that a host may watch the descriptor edge-triggered; but not what
  // busy peers add meanwhile, which would never end.
  const std::size_t rounds = 1 + state_->watched.size() / kEventsAtOnce;
  int count = kEventsAtOnce;
  for (std::size_t round = 0; round < rounds && count == kEventsAtOnce; ++round) {
    count = state_->Wait(events, round == 0 ? limit : std::chrono::nanoseconds(0));
    for (int i = 0; i < count; ++i) state_->Take(events[i]);
  }
}

std::size_t Notifier::Pending() const { return state_->queue.size(); }

void Notifier::DeliverOne(bool holdReads) {
  State& s = *state_;
  if (s.queue.empty()) return;
  const std::uint64_t number = s.queue.front();
  Registration* of = s.FindNumber(number);
  if (of == nullptr) return s.queue.pop_front();
  of->place.splice(of->place.end(), s.queue, s.queue.begin());
  for (const auto& [bit, event] : kOrder) {
    if ((of->pending & bit) == 0) continue;
    if (holdReads && !of->awaited && (bit & (kRead | kAccept)) != 0) return s.Hold(*of);
    of->pending &= ~bit;
    // What is left goes back to the queue first: the function called may wait for it.
    if (of->pending != 0) s.Queue(*of, 0);
    const Holding holding(s.holdsReads, holdReads);
    of->watcher->OnSocket(of->handle, event, bit == kClose ? of->closeError : of->connectError);
    of = s.FindNumber(number);
    if (of == nullptr || of->pending == 0) break;
  }
  // Nobody should be woken for what has gone back and was then delivered all the same.
  if (of != nullptr && of->place.empty() && of->pending == 0 && s.queue.back() == number) {
    of->place.splice(of->place.end(), s.queue, std::prev(s.queue.end()));
  }
}

void Notifier::TakeBackHeld() {
  State& s = *state_;
  while (!s.held.empty()) {
    Registration* of = s.FindNumber(s.held.front());
    if (of == nullptr) {
      s.held.pop_front();
    } else {
      of->heldPlace.splice(of->heldPlace.end(), s.held, s.held.begin());
      s.Queue(*of, 0);
    }
  }
}

bool Notifier::HoldsReads() const { return state_->holdsReads; }

void Notifier::HoldBack(std::int32_t handle) {
  Registration* of = state_->Find(handle);
  if (of == nullptr) return;
  of->pending |= kRead;
  state_->Hold(*of);
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
  try {
    Registration& added = state_->Add(made, SocketKind::Stream, *of->watcher);
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
