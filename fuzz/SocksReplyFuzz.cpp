// Plays a proxy's replies against the client's side of the SOCKS negotiation. The first byte
// chooses version, authentication and who resolves; the rest is what the proxy sends.

#include "fuzz/Fuzz.h"
#include "socket/SocksDialogue.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size == 0) return 0;
  netro::SocksTarget target;
  target.host = "host";
  target.port = 80;
  target.user = "me";
  target.version5 = (data[0] & 1) != 0;
  target.offerPassword = (data[0] & 2) != 0;
  if ((data[0] & 4) != 0) target.ip = netro::IpAddress::V4(0x0100007F);
  netro::SocksDialogue dialogue(target);
  std::span<const std::uint8_t> reply(data + 1, size - 1);
  for (int step = 0; !dialogue.IsOpen(); ++step) {
    if (step > 3 || dialogue.Request().empty()) std::abort();
    const std::size_t length = dialogue.ReplyLength(reply);
    if (length < 2) std::abort();
    const bool accepts = dialogue.Accepts(reply);
    if ((dialogue.Take(reply) == 0) != accepts) std::abort();
    if (!accepts) return 0;
    reply = reply.subspan(std::min(length, reply.size()));
  }
  return 0;
}
