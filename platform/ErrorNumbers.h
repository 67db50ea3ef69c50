// Error numbers: the system's are mapped to the documented ones here and nowhere else. Any thread.
#pragma once

#include <cstdint>
#include <string>

namespace netro {

/// Numbers of the classic socket interface that the library itself produces.
enum ErrorNumber : std::int32_t {
  kErrNone = 0,
  kErrNoDnsEntries = 59,
  kErrSocksRefused = 9001,
  kErrSocksCredentials = 9002,
  kErrSocksMethod = 9003,
  kErrCancelled = 9999,
  kErrTimedOut = 10002,
  kErrInvalidArgument = 10022,
  kErrTooManyFiles = 10024,
  kErrWouldBlock = 10035,
  kErrInProgress = 10036,
  kErrNotSocket = 10038,
  kErrMessageTooLong = 10040,
  kErrBadProtocolOption = 10042,
  kErrProtocolNotSupported = 10043,
  kErrNotSupported = 10045,
  kErrConnectionReset = 10054,
  kErrNoBuffers = 10055,
  kErrNotConnected = 10057,
  kErrShutDown = 10058,
  kErrRefused = 10061,
  kErrLoop = 10062,
  kErrOtherThread = 10180,
  kErrHostNotFound = 11001,
  kErrTryAgain = 11002,
  kErrNoData = 11004,
};

/// System errors without a documented number are this plus the system's own.
inline constexpr std::int32_t kSystemErrorBase = 20000;

/// The documented number of a system error (errno); 0 stays 0.
std::int32_t SocketErrorNumber(int systemError);

/// The number of a system error that came from a file, which the socket numbers do not describe.
std::int32_t FileErrorNumber(int systemError);

/// The number of a file that has changed while it was read, or is another one by now.
std::int32_t StaleFileNumber();

/// The system's own text for a number that maps to a system error, else empty.
std::string SystemErrorText(std::int32_t number);

}  // namespace netro
