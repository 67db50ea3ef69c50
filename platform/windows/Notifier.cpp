// The notification window on Windows: a hidden window of the loop's thread, which the system tells
// of sockets by WSAAsyncSelect, other threads by the Waker, and a timer of the window's about the
// loop's next alarm.
//
// Who turns the loop takes the window's messages with Collect, which only notes them. Where a loop
// of the host's takes them instead, the window procedure notes them and pumps: so any GetMessage
// loop drives the library. A Collect that sleeps takes the messages of the thread's other windows
// too, so that they stay alive in every blocking call. WM_QUIT ends the thread's waits and its
// RunLoop, and goes back to the queue for the host's own loop.
//
// The system keeps the re-arming rules itself, but for two things. A Close may come while there is
// something left to read: it waits until a receive has met the end. And messages carry the handle
// only, which the system reuses: what is in the queue for a socket is taken out before it goes.
#include "platform/Notifier.h"

#include <algorithm>
#include <new>
#include <optional>
#include <utility>

#include "platform/ErrorNumbers.h"
#include "platform/Loop.h"
#include "platform/NotificationQueue.h"
#include "platform/windows/Window.h"

namespace netro {
namespace {

using Registration = NotificationQueue::Registration;
using std::chrono::milliseconds;

constexpr std::size_t kDatagramRoom = 128'000;
constexpr long kEvents = FD_READ | FD_WRITE | FD_ACCEPT | FD_CONNECT | FD_CLOSE;  // 59
constexpr milliseconds kBlindSleep(10);
constexpr milliseconds kLongestSleep = std::chrono::hours(1);
// Of other windows in one turn: a window may ask to be painted for ever.
constexpr int kForeignAtOnce = 64;
constexpr UINT_PTR kAlarm = 1;

DWORD SleepTime(TimePoint until) {
  if (until == TimePoint::max()) return INFINITE;
  const auto left = std::chrono::ceil<milliseconds>(SleepFor(until - Now()));
  return static_cast<DWORD>(std::clamp(left, milliseconds(0), kLongestSleep).count());
}

std::int32_t LastError() { return SocketErrorNumber(WSAGetLastError()); }

}  // namespace

struct Notifier::State final : public WindowOwner {
  HWND window = nullptr;
  DWORD thread = 0;  // whose window it is
  std::shared_ptr<Waker> waker = std::make_shared<Waker>();
  TimePoint alarmAt = TimePoint::max();
  TimePoint timerAt = TimePoint::max();  // what the window's timer is set to
  NotificationQueue queue;
  std::unique_ptr<std::uint8_t[]> datagramRoom;

  // One that comes too early costs an empty pump.
  void SetTimer() {
    if (window == nullptr || alarmAt >= timerAt) return;
    timerAt = alarmAt;
    ::SetTimer(window, kAlarm, std::max<DWORD>(SleepTime(alarmAt), 1), nullptr);
  }

  void TakeTimer() {
    KillTimer(window, kAlarm);
    timerAt = TimePoint::max();
    if (alarmAt > Now()) return SetTimer();
    alarmAt = TimePoint::max();
  }

  bool Select(std::int32_t handle, long events = kEvents) const {
    return WSAAsyncSelect(ToSocket(handle), window, events != 0 ? kSocketMessage : 0, events) == 0;
  }

  void FinishConnect(Registration& of, std::int32_t error) {
    if (!of.connecting) return;
    of.connecting = false;
    of.connectError = error;
    of.wantsWrite = error == 0;
    of.ended = error != 0;
    queue.Queue(of, kConnect);
  }

  void NoteClose(Registration& of, std::int32_t error) {
    of.readToEnd = true;
    char byte = 0;
    const int left = recv(ToSocket(of.handle), &byte, 1, MSG_PEEK);
    if (left > 0) {
      of.closeError = error;
      of.readable = true;
      queue.Queue(of, kRead);
    } else {
      const bool failed = left < 0 && WSAGetLastError() != WSAEWOULDBLOCK;
      queue.End(of, error == 0 && failed ? LastError() : error);
    }
  }

  void Note(Registration& of, int event, std::int32_t error) {
    switch (event) {
      case FD_CONNECT:
        return FinishConnect(of, error);
      case FD_ACCEPT:
        return queue.Queue(of, kAccept);
      case FD_WRITE:
        if (std::exchange(of.wantsWrite, false)) queue.Queue(of, kWrite);
        return;
      case FD_READ:
        if (of.ended) return;
        of.readable = true;
        return queue.Queue(of, kRead);
      default:
        if (of.kind == SocketKind::Stream) NoteClose(of, error);
    }
  }

  void Take(UINT message, WPARAM first, LPARAM second) {
    if (message == kWakeMessage) return waker->Clear();
    if (message == WM_TIMER) return TakeTimer();
    if (Registration* of = queue.Find(static_cast<std::int32_t>(first))) {
      Note(*of, WSAGETSELECTEVENT(second), SocketErrorNumber(WSAGETSELECTERROR(second)));
    }
  }

  // Another loop has taken it out of the queue. What the host's functions throw cannot pass the
  // system's frames.
  void OnMessage(UINT message, WPARAM first, LPARAM second) noexcept override {
    Take(message, first, second);
    MessageLoop::ForThisThread().PumpMessages();
  }

  // What is there now, but not what busy peers add meanwhile, which would never end.
  void TakeOwn() {
    MSG message;
    for (std::size_t left = 8 + 4 * queue.Sockets();
         left > 0 && PeekMessageW(&message, window, 0, 0, PM_REMOVE) != 0; --left) {
      if (message.message == WM_QUIT) return Quit(message);
      Take(message.message, message.wParam, message.lParam);
    }
  }

  void TakeAll() {
    MSG message;
    std::size_t own = 8 + 4 * queue.Sockets();
    int foreign = kForeignAtOnce;
    while (own > 0 && foreign > 0 && PeekMessageW(&message, nullptr, 0, 0, PM_REMOVE) != 0) {
      if (message.message == WM_QUIT) return Quit(message);
      if (message.hwnd == window) {
        --own;
        Take(message.message, message.wParam, message.lParam);
      } else {
        --foreign;
        TranslateMessage(&message);
        DispatchMessageW(&message);
      }
    }
  }

  static void Quit(const MSG& message) {
    Loop& loop = *Loop::ForThread();
    loop.KillWaits();
    loop.QuitLoop();
    PostQuitMessage(static_cast<int>(message.wParam));
  }
};

Notifier::Notifier() : state_(std::make_unique<State>()) { Open(); }

Notifier::~Notifier() {
  State& s = *state_;
  // The window of a thread that has ended is gone.
  if (s.window == nullptr || s.thread != GetCurrentThreadId()) return;
  SetWindowOwner(s.window, nullptr);
  DestroyWindow(s.window);
}

std::int32_t Notifier::Open() {
  State& s = *state_;
  if (s.window != nullptr) return 0;
  const std::intptr_t made = s.waker->Open();
  if (made < 0) return kErrNoBuffers;
  s.window = reinterpret_cast<HWND>(made);
  s.thread = GetCurrentThreadId();
  SetWindowOwner(s.window, &s);
  s.SetTimer();
  return 0;
}

int Notifier::Fd() const { return -1; }

void Notifier::Wake() { state_->waker->Wake(); }

std::shared_ptr<Waker> Notifier::SharedWaker() const { return state_->waker; }

void Notifier::SetAlarm(TimePoint when) {
  state_->alarmAt = when;
  state_->SetTimer();
}

void Notifier::Collect(TimePoint until) {
  State& s = *state_;
  const bool sleep = s.queue.Pending() == 0 && until != TimePoint::min();
  if (Open() != 0) {  // without a window left, time still passes
    const auto most = static_cast<DWORD>(kBlindSleep.count());
    return ::Sleep(sleep ? std::min(SleepTime(until), most) : 0);
  }
  if (!sleep) return s.TakeOwn();
  MsgWaitForMultipleObjectsEx(0, nullptr, SleepTime(until), QS_ALLINPUT, MWMO_INPUTAVAILABLE);
  s.TakeAll();
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
  if (const std::int32_t error = Open()) return error;
  state_->queue.Add(handle, kind, watcher).wantsWrite = false;
  if (kind != SocketKind::Datagram || state_->Select(handle)) return 0;
  const std::int32_t error = LastError();
  state_->queue.Remove(handle);
  return error;
}

void Notifier::Unwatch(std::int32_t handle) {
  if (state_->queue.Find(handle) == nullptr) return;
  state_->Select(handle, 0);
  state_->TakeOwn();
  state_->queue.Remove(handle);
}

void Notifier::Renew(std::int32_t handle) {
  Registration* of = state_->queue.Find(handle);
  if (of == nullptr) return;
  // Being asked for again, the system tells what is there by now.
  if (of->kind == SocketKind::Listener) {
    state_->Select(handle);
  } else {
    state_->queue.Queue(*of, kRead);
  }
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
      state_->Select(handle) && (connect(ToSocket(handle), name.Generic(), name.size) == 0 ||
                                 WSAGetLastError() == WSAEWOULDBLOCK);
  const std::int32_t error = started ? 0 : LastError();
  of->connecting = true;
  if (started) return kSocketError;
  state_->FinishConnect(*of, error);
  Wake();
  return kSocketError;
}

std::int32_t Notifier::Listen(std::int32_t handle, int backlog) {
  if (state_->queue.Find(handle) == nullptr) return kErrNotSocket;
  if (listen(ToSocket(handle), backlog) == 0 && state_->Select(handle)) return 0;
  return LastError();
}

std::int32_t Notifier::Accept(std::int32_t listener, std::int32_t& error) {
  Registration* of = state_->queue.Find(listener);
  error = kErrNotSocket;
  if (of == nullptr || of->kind != SocketKind::Listener) return 0;
  const SOCKET made = accept(ToSocket(listener), nullptr, nullptr);
  error = made == INVALID_SOCKET ? LastError() : 0;
  // A call that has failed lets the next connection notify too, except for want of memory: then the
  // owner renews it after a pause.
  if (made == INVALID_SOCKET) return 0;
  SetHandleInformation(reinterpret_cast<HANDLE>(made), HANDLE_FLAG_INHERIT, 0);
  const auto handle = static_cast<std::int32_t>(made);
  try {
    state_->queue.Add(handle, SocketKind::Stream, *of->watcher).wantsWrite = true;
    if (state_->Select(handle)) return handle;
    error = LastError();
  } catch (const std::bad_alloc&) {
    error = kErrNoBuffers;
  }
  Unwatch(handle);
  CloseSocket(handle);
  return 0;
}

std::ptrdiff_t Notifier::Send(std::int32_t handle, std::span<const std::uint8_t> data,
                              std::int32_t& error, const SocketAddress* to) {
  std::optional<SystemAddress> name;
  if (to != nullptr) name = ToSystem(*to);
  constexpr std::size_t kMost = 1 << 30;  // of one call of the system
  const int sent = sendto(ToSocket(handle), reinterpret_cast<const char*>(data.data()),
                          static_cast<int>(std::min(data.size(), kMost)), 0,
                          name ? name->Generic() : nullptr, name ? name->size : 0);
  error = sent < 0 ? LastError() : 0;
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
  const bool stream = of->kind == SocketKind::Stream;
  const int got = recvfrom(ToSocket(handle), reinterpret_cast<char*>(room.data()),
                           static_cast<int>(std::min<std::size_t>(room.size(), 1 << 30)), 0,
                           name ? name->Generic() : nullptr, name ? &name->size : nullptr);
  error = got < 0 ? LastError() : 0;
  // So the system tells a datagram socket that nobody listens at its peer's port.
  if (!stream && error == kErrConnectionReset) error = kErrRefused;
  if (name) *from = FromSystem(*name);
  if (stream) {
    if (got == 0) state_->queue.End(*of, 0);
    // After a short read the system tells of more; an end is told once.
    if (got > 0 && got < static_cast<int>(room.size()) && !of->readToEnd) of->readable = false;
    if (got < 0 && error != kErrWouldBlock) state_->queue.End(*of, error);
  }
  if (error == kErrWouldBlock) {
    of->readable = false;
    // Close has come, and all has been read.
    if (of->readToEnd) state_->queue.End(*of, of->closeError);
  }
  of->pending &= ~static_cast<unsigned>(kRead);
  if (of->readable && stream) state_->queue.Queue(*of, kRead);
  return got;
}

}  // namespace netro
