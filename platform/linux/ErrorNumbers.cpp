#include "platform/ErrorNumbers.h"

#include <cerrno>
#include <system_error>

namespace netro {
namespace {

struct Pair {
  int system;
  std::int32_t documented;
};

constexpr Pair kPairs[] = {
    {EINTR, 10004},        {EBADF, 10009},           {EACCES, 10013},
    {EPERM, 10013},        {EFAULT, 10014},          {EINVAL, 10022},
    {EMFILE, 10024},       {ENFILE, 10024},          {EAGAIN, 10035},
    {EINPROGRESS, 10036},  {EALREADY, 10037},        {ENOTSOCK, 10038},
    {EDESTADDRREQ, 10039}, {EMSGSIZE, 10040},        {EPROTOTYPE, 10041},
    {ENOPROTOOPT, 10042},  {EPROTONOSUPPORT, 10043}, {ESOCKTNOSUPPORT, 10044},
    {EOPNOTSUPP, 10045},   {EPFNOSUPPORT, 10046},    {EAFNOSUPPORT, 10047},
    {EADDRINUSE, 10048},   {EADDRNOTAVAIL, 10049},   {ENETDOWN, 10050},
    {ENETUNREACH, 10051},  {ENETRESET, 10052},       {ECONNABORTED, 10053},
    {ECONNRESET, 10054},   {EPIPE, 10054},           {ENOBUFS, 10055},
    {ENOMEM, 10055},       {EISCONN, 10056},         {ENOTCONN, 10057},
    {ESHUTDOWN, 10058},    {ETOOMANYREFS, 10059},    {ETIMEDOUT, 10060},
    {ECONNREFUSED, 10061}, {ELOOP, 10062},           {ENAMETOOLONG, 10063},
    {EHOSTDOWN, 10064},    {EHOSTUNREACH, 10065},    {ENOTEMPTY, 10066},
    {EUSERS, 10068},       {EDQUOT, 10069},          {ESTALE, 10070},
    {EREMOTE, 10071},
};

}  // namespace

std::int32_t SocketErrorNumber(int systemError) {
  if (systemError == 0) return 0;
  for (const Pair& pair : kPairs) {
    if (pair.system == systemError) return pair.documented;
  }
  return kSystemErrorBase + systemError;
}

std::int32_t FileErrorNumber(int systemError) { return kSystemErrorBase + systemError; }

std::int32_t StaleFileNumber() { return FileErrorNumber(ESTALE); }

std::string SystemErrorText(std::int32_t number) {
  int system = 0;
  if (number > kSystemErrorBase && number < kSystemErrorBase + 4096) {
    system = number - kSystemErrorBase;
  }
  for (const Pair& pair : kPairs) {
    if (system == 0 && pair.documented == number) system = pair.system;
  }
  return system == 0 ? std::string() : std::generic_category().message(system);
}

}  // namespace netro
