// What the scripted servers are made of: a listening socket on a free port of 127.0.0.1 with its
// own thread, and one thread for each connection.
//
// Thread: a server belongs to the test; `serve` runs on the connection's thread. Destroying the
// server ends every wait of every Connection at once and joins all threads.
#pragma once

#include <netro/Export.h>
#include <netro/testkit/Response.h>

#include <atomic>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <list>
#include <memory>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

namespace netro::testkit {

/// One accepted connection. All methods but Stopped end early when the server stops.
class NETRO_EXPORT Connection {
 public:
  /// Takes the descriptor over; `stopFd` becomes readable when the server stops.
  Connection(int fd, int stopFd);
  ~Connection();
  Connection(const Connection&) = delete;
  Connection& operator=(const Connection&) = delete;

  /// Waits for bytes and appends them; false at the end of the stream.
  bool Read(std::string& into);
  /// Appends what is there without waiting.
  void ReadAvailable(std::string& into);
  /// Waits for the peer's end of stream.
  void ReadToEnd(std::string& into);
  /// Sends all; false when the peer has gone.
  bool Send(std::string_view bytes);
  /// Sends in pieces that begin at the positions `cuts`. Each piece is held back until the client
  /// program has read the one before (or two seconds), so that it really sees them apart.
  bool SendCut(std::string_view bytes, const std::vector<std::size_t>& cuts);
  /// Sends it as it says. False when nothing can follow.
  bool Give(const Response& response);
  /// Waits so long; false when the server stops meanwhile.
  bool Pause(std::chrono::milliseconds time);
  /// Waits until the client program has read what was sent (or two seconds).
  bool AwaitTaken();
  /// Ends the stream to the peer; reading goes on.
  void HalfClose();
  /// In good order, unless bytes are left unread: then the peer sees a reset.
  void Close();
  /// Closes so that the peer sees a reset.
  void Reset();

  /// The descriptors: of the connection, and one that becomes readable when the server stops.
  int Fd() const { return fd_; }
  int StopFd() const { return stopFd_; }

 private:
  bool Wait(short events);

  int fd_;
  int stopFd_;
  int diagFd_;
  std::uint64_t sent_ = 0;
};

/// A TCP server with a thread for each connection; its end ends them all.
class NETRO_EXPORT LoopbackServer {
 public:
  /// Called for each connection with its number, counted from 0; the connection is closed after.
  using Serve = std::function<void(Connection&, std::size_t)>;

  /// On another address below 127 it can have a port that is taken on 127.0.0.1.
  explicit LoopbackServer(Serve serve, int port = 0, const std::string& address = "127.0.0.1");
  ~LoopbackServer();
  LoopbackServer(const LoopbackServer&) = delete;
  LoopbackServer& operator=(const LoopbackServer&) = delete;

  /// Where it listens.
  int Port() const { return port_; }
  /// Connections accepted so far.
  std::size_t Connections() const { return connections_; }

 private:
  struct Worker {
    std::thread thread;
    std::atomic<bool> done{false};
  };

  void AcceptLoop();
  void StartWorker(int fd);
  void JoinFinished();

  Serve serve_;
  int listenFd_ = -1;
  int stopRead_ = -1;
  int stopWrite_ = -1;
  int port_ = 0;
  std::atomic<std::size_t> connections_{0};
  std::list<Worker> workers_;  // of the accepting thread until it has ended
  std::thread acceptor_;
};

/// A new socket connected to a port of 127.0.0.1; -1 when that failed.
NETRO_EXPORT int ConnectToLoopback(int port);

/// Copies to such a port and back until one side ends or the server stops; then both are closed.
NETRO_EXPORT void Relay(Connection& client, int port);

/// A port of 127.0.0.1 that refuses connections and is taken by nobody else meanwhile.
class NETRO_EXPORT RefusingPort {
 public:
  RefusingPort();
  ~RefusingPort();
  RefusingPort(const RefusingPort&) = delete;
  RefusingPort& operator=(const RefusingPort&) = delete;
  /// The one that refuses.
  int Port() const { return port_; }

 private:
  int fd_;
  int port_;
};

/// A port whose queue is full: the kernel leaves connection attempts unanswered.
class NETRO_EXPORT HangingPort {
 public:
  /// See LoopbackServer.
  explicit HangingPort(int port = 0, const std::string& address = "127.0.0.1");
  ~HangingPort();
  HangingPort(const HangingPort&) = delete;
  HangingPort& operator=(const HangingPort&) = delete;
  /// The one that does not answer.
  int Port() const { return port_; }

 private:
  int fd_;
  int port_;
  std::vector<int> fillers_;
};

}  // namespace netro::testkit
