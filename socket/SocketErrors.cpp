#include "socket/SocketErrors.h"

#include <netro/Localization.h>

#include <algorithm>
#include <iterator>

#include "platform/ErrorNumbers.h"

namespace netro {
namespace {

struct ErrorText {
  std::int32_t number;
  const char* text;
};

// Sorted by number. The texts are users' knowledge and stay as they are, typos included.
constexpr ErrorText kTexts[] = {
    {9000, "Proxy SOCKS. OK"},
    {9001, "Proxy SOCKS. The connection request has failed or the proxy server has rejected it."},
    {9002, "Proxy SOCKS. The user/password combination was not accepted by the proxy."},
    {9003, "Proxy SOCKS. The selected authentication method was not accepted by the proxy."},
    {10004, "Interrupted Function Call. A blocking operation was cancelled."},
    {10013,
     "Permission Denied. An attempt to access a socket was forbidden by its access "
     "permissions."},
    {10014, "Bad Address. An invalid pointer address was specified in a function call."},
    {10022, "Invalid Argument. An invalid argument was passed to a function."},
    {10024, "Too Many Open Files. There are too many open sockets."},
    {10035,
     "Resource Temporarily Unavailable. The specified socket operation cannot be completed "
     "immediately, but the operation should be retried later."},
    {10036, "Operation Now in Progress. A blocking operation is currently executing."},
    {10037,
     "Operation Already in Progress. An operation was attempted on a non-binding socket "
     "that alredy had an operation in progress."},
    {10038,
     "Socket Operation on Non-Socket. An operation was attempted on something that is not "
     "a socket."},
    {10039,
     "Destination Address Required. A required address was omitted from a socket "
     "operation."},
    {10040,
     "Message Too Long. A message was sent on a datagram socket that exceeds the internal "
     "message buffer or some other limit."},
    {10041,
     "Protocol Wrong Type for Socket. A protocol was specified that is not supported by "
     "the target socket."},
    {10042,
     "Bad Protocol Option. An unknown, invalid, or unsupported protocol option or leel was "
     "specified."},
    {10043,
     "Protocol Not Supported. The specified protocol is not supported or is not "
     "implemented."},
    {10044,
     "Socket Type Not Supported. The specified socket type is not supported in the address "
     "family."},
    {10045,
     "Operation Not Supported. The specified operation is not supported by the referenced "
     "object."},
    {10046,
     "Protocol Family Not Supported. The specified protocol family is not supported or is "
     "not implemented."},
    {10047,
     "Address Family Not Supported by Protocol Family. An address incompatible with the "
     "requested network protocol was used."},
    {10048,
     "Address Already in Use. An attempt to use the same IP address and port with two "
     "different sockets simultaneously was made."},
    {10049,
     "Cannot Assign Requested Address. The requested address is not valid (given the "
     "context of the function)."},
    {10050, "Network is Down. A socket operation encountered a network that is down."},
    {10051, "Network is Unreachable. A socket operation encountered an unreachable network."},
    {10052,
     "Network Dropped Connection on Reset. A connection was broken due to 'keep-alive' "
     "activity detecting a failure."},
    {10053,
     "Software Caused Connection Abort. A connection was aborted by software on the host "
     "computer."},
    {10054, "Connection Reset by Peer. A connection was forcibly closed by the remote host."},
    {10055,
     "No Buffer Space Available. A socket operation could not be performed because the "
     "system ran out of buffer space or the queue was full."},
    {10056,
     "Socket is Already Connected. A connect request was made on a socket that is already "
     "connected."},
    {10057,
     "Socket is Not Connected. An attempt to send or receive data failed because the "
     "socket is not connected."},
    {10058,
     "Cannot Send After Socket Shutdown. An attempt to send or receive data failed because "
     "the socket has already been shut down."},
    {10060, "Connection Timed Out. The remote host failed to respond within the timeout period."},
    {10061,
     "Connection Refused. The target machine actively refused the attempt to connect to "
     "it."},
    {10064, "Host is Down. The destination host is down."},
    {10065, "No Route to Host. The destination host is unreachable."},
    {10067,
     "Too Many Processes. The Winsock implementation has exceeded the number of "
     "applications that can use it simultaneously."},
    {10091,
     "Network Subsystem is Unavailable. The underlying system to provide network services "
     "is unavailable."},
    {10092,
     "winsock.dll Version Out of Range. The Winsock implementation does not support the "
     "requested Winsock version."},
    {10093,
     "Successful WSAStartup Not Yet Performed. The calling application has not "
     "successfully called WSAStartup to initiate a Winsock session."},
    {10094,
     "Graceful Shutdown in Progress. The remote party has initiated a graceful shutdown "
     "sequence."},
    {10109, "Class Type Not Found. The specified class was not found."},
    {10131, "No Mail. The domain tells in DNS that it takes no mail (RFC 7505)."},
    {10160,
     "TLS: Certificate Expired. The server's certificate, or one of those that vouch for it, is no "
     "longer valid. Its owner has to renew it."},
    {10161,
     "TLS: Certificate Not Yet Valid. The server's certificate is not valid yet. Check the clock "
     "of "
     "this computer."},
    {10162,
     "TLS: Wrong Name. The server's certificate was issued for another host. Connect by a name "
     "that "
     "it has."},
    {10163,
     "TLS: Unknown Issuer. Nobody who is trusted vouches for the server's certificate. If it is "
     "one "
     "of your own, give its issuer's certificate as trust file."},
    {10164,
     "TLS: Self-Signed Certificate. The server's certificate vouches for itself. If it is one of "
     "your own, give it as trust file."},
    {10165,
     "TLS: Weak Key. A key or signature of the server is too weak to protect. Its owner has to "
     "replace it."},
    {10166, "TLS: Certificate Revoked. The server's certificate was taken back by its issuer."},
    {10167, "TLS: Bad Certificate. The server's certificate cannot be accepted."},
    {10168,
     "TLS: Pin Mismatch. The server's public key is none of the pinned ones. It has a new key, or "
     "another server answers."},
    {10169, "TLS: Protocol Version. The server offers no version of TLS that is allowed here."},
    {10170, "TLS: Alert Received. The server has refused to go on."},
    {10171,
     "TLS: Client Certificate Wanted. The server wants a client certificate, or does not accept "
     "the "
     "one given."},
    {10172,
     "TLS: Broken. What the server sent is not TLS, or was changed on its way. Check the port."},
    {10173,
     "TLS: Early Bytes. Unprotected bytes arrived where the protection was to begin. Somebody may "
     "have put them there."},
    {10174,
     "TLS: No Trust Store. The system's trusted certificates cannot be read. Install them (Debian: "
     "ca-certificates), or give a trust file."},
    {10175,
     "TLS: Closed in Handshake. The server closed the connection before it was protected. It may "
     "not speak TLS on this port."},
    {10176, "TLS: Too Much. The server sends without end, but never any data."},
    {10180,
     "Wrong Thread. Another thread is using the message loop that the object belongs to. Objects "
     "share the loop of the thread that made them, and one thread at a time can use it. Make the "
     "object on the thread that calls it."},
    {11001, "Host Not Found. No network host matching the hostname or address was found."},
    {11002,
     "Non-Authoritative Host Not Found. A temporary error while resolving a hostname "
     "occured, and should be retried later."},
    {11003,
     "This is a Non-Recoverable Error. Some sort of non-recoverable error occured during a "
     "database lookup."},
    {11004,
     "Valid Name, No Data Record of Requested Type. The requested name is valid and was "
     "found, but does not have the associated data requested."},
};

struct MessageRange {
  std::int32_t first, last;  // numbers
  std::int32_t message;      // of the first
};

// Numbers whose text is a message. 0 to 60 are shared with the DNS result codes.
constexpr MessageRange kMessages[] = {
    {0, 0, 10100},         {1, 10, 10101},        {16, 22, 10111},       {51, 56, 10118},
    {58, 58, 10125},       {59, 59, 10126},       {60, 60, 10128},       {9999, 9999, 9999},
    {10002, 10002, 10002}, {10124, 10124, 10124}, {10130, 10130, 10130}, {11005, 11005, 11005},
};

}  // namespace

std::string SocketErrorText(std::int32_t number) try {
  for (const MessageRange& range : kMessages) {
    if (number >= range.first && number <= range.last) {
      return GetMessageText(range.message + number - range.first);
    }
  }
  const auto* found = std::ranges::lower_bound(kTexts, number, {}, &ErrorText::number);
  if (found != std::end(kTexts) && found->number == number) return found->text;
  const std::string system = SystemErrorText(number);
  return system.empty() ? GetMessageText(10127, {std::to_string(number)}) : system;
} catch (const std::bad_alloc&) {
  return {};
}

}  // namespace netro
