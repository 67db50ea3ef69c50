// The functions of the C library that stand between the library under test and the system. Each is
// defined here under the system's own name, so that the linker takes it, and passes on to the real
// one unless a fault strikes. The second name keeps the headers' declarations out of the way.
#include <dlfcn.h>
#include <sys/epoll.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/types.h>

#include <array>
#include <cerrno>
#include <cstdio>
#include <iterator>

#include "Faults.h"

namespace netro::torture {
namespace {

enum Call : std::size_t {
  kSocket, kConnect, kBind, kListen, kAccept, kSetSockOpt, kGetSockOpt, kGetSockName, kGetPeerName,
  kSendTo, kRecv, kRecvFrom, kRecvMsg, kRecvMMsg, kShutdown, kEpollCreate, kEpollCtl, kEpollWait,
  kEventFd, kTimerFd, kTimerSet, kMmap, kMprotect, kOpen, kMkostemps, kFopen, kRead, kPread, kWrite,
  kFwrite, kFstat, kStat, kFtruncate, kFsync, kFdatasync, kRename, kUnlink, kMkdir, kOpenDir,
  kFlock, kPipe, kCalls,
};
static_assert(kCalls <= kMostCalls);

// Without EAGAIN: where the system tells it, it tells later that there is more.
constexpr int kNoDescriptor[] = {EMFILE, ENFILE, ENOMEM};
constexpr int kSocketErrors[] = {EMFILE, ENFILE, ENOBUFS, EACCES, EAFNOSUPPORT};
constexpr int kConnectErrors[] = {ECONNREFUSED, ETIMEDOUT, ENETUNREACH, EADDRNOTAVAIL, EACCES,
                                  EINTR};
constexpr int kBindErrors[] = {EADDRINUSE, EACCES};
constexpr int kAcceptErrors[] = {EMFILE, ENOBUFS, ECONNABORTED, EINTR};
constexpr int kOptionErrors[] = {ENOBUFS};
constexpr int kSendErrors[] = {EINTR, ECONNRESET, EPIPE, ENOBUFS, EMSGSIZE, ECONNREFUSED};
constexpr int kReceiveErrors[] = {EINTR, ECONNRESET, ECONNREFUSED, ENOMEM, ETIMEDOUT};
constexpr int kNotConnected[] = {ENOTCONN};
constexpr int kEpollErrors[] = {ENOMEM, ENOSPC};
constexpr int kInterrupted[] = {EINTR};
constexpr int kNoMemory[] = {ENOMEM};
constexpr int kOpenErrors[] = {EMFILE, ENOENT, EACCES, ENOSPC, EINTR};
constexpr int kReadErrors[] = {EIO, EINTR};
constexpr int kWriteErrors[] = {ENOSPC, EIO, EINTR};
constexpr int kStreamErrors[] = {ENOSPC, EIO};
constexpr int kFileErrors[] = {EIO};
constexpr int kFolderErrors[] = {EACCES, ENOSPC, EIO};
constexpr int kLockErrors[] = {EINTR, ENOLCK};

constexpr FaultyCall kTable[kCalls] = {
    {"socket", kSocketErrors},      {"connect", kConnectErrors},
    {"bind", kBindErrors},          {"listen", kBindErrors},
    {"accept4", kAcceptErrors},     {"setsockopt", kOptionErrors},
    {"getsockopt", kOptionErrors},  {"getsockname", kOptionErrors},
    {"getpeername", kNotConnected}, {"sendto", kSendErrors},
    {"recv", kReceiveErrors},       {"recvfrom", kReceiveErrors},
    {"recvmsg", kReceiveErrors},    {"recvmmsg", kReceiveErrors},
    {"shutdown", kNotConnected},    {"epoll_create1", kNoDescriptor},
    {"epoll_ctl", kEpollErrors},    {"epoll_wait", kInterrupted},
    {"eventfd", kNoDescriptor},     {"timerfd_create", kNoDescriptor},
    {"timerfd_settime", kNoMemory}, {"mmap", kNoMemory},
    {"mprotect", kNoMemory},        {"open", kOpenErrors},
    {"mkostemps", kOpenErrors},     {"fopen", kOpenErrors},
    {"read", kReadErrors},          {"pread", kReadErrors},
    {"write", kWriteErrors},        {"fwrite", kStreamErrors},
    {"fstat", kFileErrors},         {"stat", kFileErrors},
    {"ftruncate", kFileErrors},     {"fsync", kFileErrors},
    {"fdatasync", kFileErrors},     {"rename", kFolderErrors},
    {"unlink", kFolderErrors},      {"mkdir", kFolderErrors},
    {"opendir", kOpenErrors},       {"flock", kLockErrors},
    {"pipe2", kNoDescriptor},
};

template <class Function>
Function Real(const char* name) {
  return reinterpret_cast<Function>(dlsym(RTLD_NEXT, name));
}

// How many of `size` bytes may go through this socket at once; datagrams stay whole.
std::size_t OfStream(int fd, std::size_t size) {
  using GetOption = int (*)(int, int, int, void*, socklen_t*);
  int type = 0;
  socklen_t length = sizeof type;
  static const auto real = Real<GetOption>("getsockopt");
  const bool stream = real(fd, SOL_SOCKET, SO_TYPE, &type, &length) == 0 && type == SOCK_STREAM;
  return stream ? Allowed(size) : size;
}

bool Struck(Call call) {
  const int error = Strike(call);
  if (error != 0) errno = error;
  return error != 0;
}

}  // namespace

std::span<const FaultyCall> FaultyCalls() { return kTable; }

}  // namespace netro::torture

using namespace netro::torture;

// NOLINTBEGIN
#define NETRO_FAULTY(call, result, failed, name, parameters, arguments) \
  extern "C" __attribute__((visibility("default")))                     \
  result Faulty_##name parameters __asm__(#name);                       \
  extern "C" result Faulty_##name parameters {                          \
    static const auto real = Real<result(*) parameters>(#name);         \
    if (Struck(call)) return failed;                                    \
    return real arguments;                                              \
  }
// NOLINTEND

NETRO_FAULTY(kSocket, int, -1, socket, (int d, int t, int p), (d, t, p))
NETRO_FAULTY(kConnect, int, -1, connect, (int f, const sockaddr* a, socklen_t n), (f, a, n))
NETRO_FAULTY(kBind, int, -1, bind, (int f, const sockaddr* a, socklen_t n), (f, a, n))
NETRO_FAULTY(kListen, int, -1, listen, (int f, int n), (f, n))
NETRO_FAULTY(kAccept, int, -1, accept4, (int f, sockaddr* a, socklen_t* n, int o), (f, a, n, o))
NETRO_FAULTY(kSetSockOpt, int, -1, setsockopt, (int f, int l, int o, const void* v, socklen_t n),
             (f, l, o, v, n))
NETRO_FAULTY(kGetSockOpt, int, -1, getsockopt, (int f, int l, int o, void* v, socklen_t* n),
             (f, l, o, v, n))
NETRO_FAULTY(kGetSockName, int, -1, getsockname, (int f, sockaddr* a, socklen_t* n), (f, a, n))
NETRO_FAULTY(kGetPeerName, int, -1, getpeername, (int f, sockaddr* a, socklen_t* n), (f, a, n))
NETRO_FAULTY(kSendTo, ssize_t, -1, sendto,
             (int f, const void* b, size_t n, int o, const sockaddr* a, socklen_t l),
             (f, b, OfStream(f, n), o, a, l))
NETRO_FAULTY(kRecv, ssize_t, -1, recv, (int f, void* b, size_t n, int o), (f, b, OfStream(f, n), o))
NETRO_FAULTY(kRecvFrom, ssize_t, -1, recvfrom,
             (int f, void* b, size_t n, int o, sockaddr* a, socklen_t* l), (f, b, n, o, a, l))
NETRO_FAULTY(kRecvMsg, ssize_t, -1, recvmsg, (int f, msghdr* m, int o), (f, m, o))
NETRO_FAULTY(kRecvMMsg, int, -1, recvmmsg, (int f, mmsghdr* m, unsigned n, int o, timespec* t),
             (f, m, n, o, t))
NETRO_FAULTY(kShutdown, int, -1, shutdown, (int f, int h), (f, h))
NETRO_FAULTY(kEpollCreate, int, -1, epoll_create1, (int o), (o))
NETRO_FAULTY(kEpollCtl, int, -1, epoll_ctl, (int e, int o, int f, epoll_event* v), (e, o, f, v))
NETRO_FAULTY(kEventFd, int, -1, eventfd, (unsigned v, int o), (v, o))
NETRO_FAULTY(kTimerFd, int, -1, timerfd_create, (int c, int o), (c, o))
NETRO_FAULTY(kTimerSet, int, -1, timerfd_settime, (int f, int o, const void* n, void* w),
             (f, o, n, w))
NETRO_FAULTY(kMmap, void*, reinterpret_cast<void*>(-1), mmap,
             (void* a, size_t n, int p, int o, int f, off_t at), (a, n, p, o, f, at))
NETRO_FAULTY(kMprotect, int, -1, mprotect, (void* a, size_t n, int p), (a, n, p))
NETRO_FAULTY(kOpen, int, -1, open, (const char* p, int o, mode_t m), (p, o, m))
NETRO_FAULTY(kMkostemps, int, -1, mkostemps, (char* p, int n, int o), (p, n, o))
NETRO_FAULTY(kFopen, FILE*, nullptr, fopen, (const char* p, const char* m), (p, m))
NETRO_FAULTY(kRead, ssize_t, -1, read, (int f, void* b, size_t n), (f, b, n < 9 ? n : Allowed(n)))
NETRO_FAULTY(kPread, ssize_t, -1, pread, (int f, void* b, size_t n, off_t at),
             (f, b, Allowed(n), at))
NETRO_FAULTY(kWrite, ssize_t, -1, write, (int f, const void* b, size_t n),
             (f, b, n < 9 ? n : Allowed(n)))
NETRO_FAULTY(kFwrite, size_t, 0, fwrite, (const void* b, size_t s, size_t n, FILE* f),
             (b, s, n, f))
NETRO_FAULTY(kFstat, int, -1, fstat, (int f, struct stat* s), (f, s))
NETRO_FAULTY(kStat, int, -1, stat, (const char* p, struct stat* s), (p, s))
NETRO_FAULTY(kFtruncate, int, -1, ftruncate, (int f, off_t n), (f, n))
NETRO_FAULTY(kFsync, int, -1, fsync, (int f), (f))
NETRO_FAULTY(kFdatasync, int, -1, fdatasync, (int f), (f))
NETRO_FAULTY(kRename, int, -1, rename, (const char* a, const char* b), (a, b))
NETRO_FAULTY(kUnlink, int, -1, unlink, (const char* p), (p))
NETRO_FAULTY(kMkdir, int, -1, mkdir, (const char* p, mode_t m), (p, m))
NETRO_FAULTY(kOpenDir, void*, nullptr, opendir, (const char* p), (p))
NETRO_FAULTY(kFlock, int, -1, flock, (int f, int o), (f, o))
NETRO_FAULTY(kPipe, int, -1, pipe2, (int* f, int o), (f, o))

// As a system before Linux 5.11 answers, so that all waits come by below.
extern "C" int Faulty_epoll_pwait2(int, epoll_event*, int, const timespec*,
                                   const sigset_t*) __asm__("epoll_pwait2");
extern "C" int Faulty_epoll_pwait2(int, epoll_event*, int, const timespec*, const sigset_t*) {
  errno = ENOSYS;
  return -1;
}

extern "C" int Faulty_epoll_wait(int e, epoll_event* v, int n, int wait) __asm__("epoll_wait");
extern "C" int Faulty_epoll_wait(int e, epoll_event* v, int n, int wait) {
  static const auto real = Real<int (*)(int, epoll_event*, int, int)>("epoll_wait");
  if (Struck(kEpollWait)) return -1;
  const int allowed = BeforeWait(wait);
  const int count = real(e, v, n, allowed);
  if (count == 0 && allowed < wait) PassTime(wait - allowed);
  return count;
}
