#include "socket/SocksDialogue.h"

#include <algorithm>
#include <utility>

#include "platform/ErrorNumbers.h"
#include "support/ByteReader.h"
#include "support/ByteWriter.h"

namespace netro {
namespace {

constexpr std::uint8_t kVersion4 = 4;
constexpr std::uint8_t kVersion5 = 5;
constexpr std::uint8_t kPasswordVersion = 1;
constexpr std::uint8_t kCommandConnect = 1;
constexpr std::uint8_t kMethodPassword = 2;
constexpr std::uint8_t kMethodNone = 0xFF;
constexpr std::uint8_t kGranted4 = 90;
constexpr std::size_t kLongestField = 255;
constexpr std::size_t kReply4Length = 8;
constexpr std::size_t kRoom = 64;  // of most requests

enum AddressType : std::uint8_t { kIPv4 = 1, kDomain = 3, kIPv6 = 4 };

void AppendCounted(ByteWriter& out, const std::string& text) {
  out.U8(static_cast<std::uint8_t>(text.size()));
  out.Text(text);
}

bool HasNul(const std::string& text) { return text.find('\0') != std::string::npos; }

// RFC 1928 section 6: version, reply, reserved, address type, address, port.
std::size_t Connect5ReplyLength(std::span<const std::uint8_t> reply) {
  ByteReader reader(reply);
  reader.Skip(3);
  const std::uint8_t type = reader.U8();
  if (!reader.Ok()) return 4;
  switch (type) {
    case kIPv4:
      return 10;
    case kIPv6:
      return 22;
    case kDomain: {
      const std::uint8_t length = reader.U8();
      return reader.Ok() ? 7U + length : 5;
    }
    default:
      return 4;  // no such type: nothing more can be told apart from the tunnel's bytes
  }
}

}  // namespace

SocksDialogue::SocksDialogue(SocksTarget target)
    : target_(std::move(target)), step_(target_.version5 ? Step::Greeting : Step::Connect4) {}

std::int32_t SocksDialogue::Check(const SocksTarget& target) {
  const bool tooLong =
      std::max({target.host.size(), target.user.size(), target.password.size()}) > kLongestField;
  const bool nul = !target.version5 && (HasNul(target.host) || HasNul(target.user));
  const bool noHost = target.resolveRemotely && target.host.empty();
  const bool badPort = target.port < 0 || target.port > 65535;
  return tooLong || nul || noHost || badPort ? kErrInvalidArgument : 0;
}

Bytes SocksDialogue::Request() const {
  switch (step_) {
    case Step::Connect4:
      return Connect4();
    case Step::Greeting:
      return Greeting();
    case Step::Password:
      return Password();
    case Step::Connect5:
      return Connect5();
    case Step::Open:
      break;
  }
  return {};
}

Bytes SocksDialogue::Connect4() const {
  ByteWriter out(kRoom);
  out.U8(kVersion4);
  out.U8(kCommandConnect);
  out.U16(static_cast<std::uint16_t>(target_.port));
  // 4a: an address 0.0.0.x tells that the name follows the user.
  constexpr std::uint8_t kNameFollows[] = {0, 0, 0, 1};
  out.Append(target_.ip.IsIPv4() ? target_.ip.Bytes() : kNameFollows);
  out.Text(target_.user);
  out.U8(0);
  if (target_.ip.IsNone()) {
    out.Text(target_.host);
    out.U8(0);
  }
  return out.Take();
}

Bytes SocksDialogue::Greeting() const {
  if (target_.offerPassword) return {kVersion5, 2, 0, kMethodPassword};
  return {kVersion5, 1, 0};
}

Bytes SocksDialogue::Password() const {
  ByteWriter out(kRoom);
  out.U8(kPasswordVersion);
  AppendCounted(out, target_.user);
  AppendCounted(out, target_.password);
  return out.Take();
}

Bytes SocksDialogue::Connect5() const {
  ByteWriter out(kRoom);
  out.U8(kVersion5);
  out.U8(kCommandConnect);
  out.U8(0);
  out.U8(target_.ip.IsNone() ? kDomain : target_.ip.IsIPv4() ? kIPv4 : kIPv6);
  target_.ip.IsNone() ? AppendCounted(out, target_.host) : out.Append(target_.ip.Bytes());
  out.U16(static_cast<std::uint16_t>(target_.port));
  return out.Take();
}

std::size_t SocksDialogue::ReplyLength(std::span<const std::uint8_t> reply) const {
  switch (step_) {
    case Step::Connect4:
      return kReply4Length;
    case Step::Connect5:
      return Connect5ReplyLength(reply);
    case Step::Greeting:
    case Step::Password:
    case Step::Open:
      break;
  }
  return kShortestReply;
}

bool SocksDialogue::Accepts(std::span<const std::uint8_t> reply) const {
  if (reply.size() < kShortestReply) return false;
  switch (step_) {
    case Step::Connect4:
      return reply[1] == kGranted4;
    case Step::Greeting:
      return reply[1] != kMethodNone;
    case Step::Password:
    case Step::Connect5:
      return reply[1] == 0;
    case Step::Open:
      break;
  }
  return false;
}

std::int32_t SocksDialogue::Take(std::span<const std::uint8_t> reply) {
  const bool accepted = Accepts(reply);
  switch (step_) {
    case Step::Greeting:
      if (!accepted) return kErrSocksMethod;
      // Also when only "none" was offered: the proxy's choice is followed.
      step_ = reply[1] == kMethodPassword ? Step::Password : Step::Connect5;
      return 0;
    case Step::Password:
      if (!accepted) return kErrSocksCredentials;
      step_ = Step::Connect5;
      return 0;
    case Step::Connect4:
    case Step::Connect5:
      if (!accepted) return kErrSocksRefused;
      step_ = Step::Open;
      return 0;
    case Step::Open:
      break;
  }
  return 0;
}

}  // namespace netro
