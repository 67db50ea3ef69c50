#include "diag/IcmpTexts.h"

#include <netro/Localization.h>

#include <new>

#include "socket/SocketErrors.h"

namespace netro {
namespace {

struct MessageRange {
  std::int32_t first, last;  // codes
  std::int32_t message;      // of the first
};

constexpr MessageRange kMessages[] = {
    {9999, 9999, 9999},    {10000, 10001, 10200}, {10002, 10002, 10002},
    {11001, 11022, 10202}, {11050, 11050, 10224},
};

}  // namespace

std::string IcmpErrorText(std::int32_t code) try {
  for (const MessageRange& range : kMessages) {
    if (code >= range.first && code <= range.last) {
      return GetMessageText(range.message + code - range.first);
    }
  }
  return SocketErrorText(code);
} catch (const std::bad_alloc&) {
  return {};
}

}  // namespace netro
