// The system's sockets as the scripted servers use them: IPv4, by numbers that are -1 for none. Any
// thread.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <string_view>

namespace netro::testkit {

struct Endpoint {
  std::uint32_t ip = 0x7F000001;  // in host order
  int port = 0;
};

/// Dotted text, as "127.0.0.1"; what is none stays 0 in `ip`.
bool ReadIp(const std::string& text, std::uint32_t& ip);
std::string WriteIp(std::uint32_t ip);

enum class Protocol { Tcp, Udp };

int OpenSocket(Protocol protocol);
void CloseSocket(int socket);
bool BindSocket(int socket, const Endpoint& endpoint);
Endpoint OwnEndpoint(int socket);
bool ListenOn(int socket, int backlog);
int AcceptFrom(int listener);
/// Waits for the outcome, unless the socket does not block.
bool ConnectSocket(int socket, const Endpoint& endpoint);

void SetNonBlocking(int socket);
void SetNoDelay(int socket);
/// From now on a close is a reset.
void SetHardClose(int socket);
void EndSending(int socket);

/// What came or went; 0 the end of the stream, kNothingNow, or kFailed.
inline constexpr std::ptrdiff_t kNothingNow = -1;
inline constexpr std::ptrdiff_t kFailed = -2;
std::ptrdiff_t ReceiveFrom(int socket, std::span<char> room, Endpoint* from = nullptr);
std::ptrdiff_t SendTo(int socket, std::string_view bytes, const Endpoint* to = nullptr);

/// One socket of several that are waited for; -1 is left out.
struct Watched {
  int socket = -1;
  bool forRoom = false;  // to send, instead of something to read
  bool ready = false;
};
/// Waits until one is ready, or so many milliseconds; -1 is for ever.
void Await(std::span<Watched> sockets, int milliseconds);

/// Two ends: `first` becomes readable when `second` is closed.
void OpenStop(int& first, int& second);

/// A number of this process.
std::uint32_t ProcessNumber();

}  // namespace netro::testkit
