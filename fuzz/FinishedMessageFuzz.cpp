// Feeds a finished message on its way to a server: where it is cut must not matter, its lines must
// all end with CR LF, no field of blind copies may be left, and a server that takes the dots away
// must have it as it was.
#include <memory>

#include "fuzz/Fuzz.h"
#include "mail/FinishedText.h"
#include "mail/HeaderBlock.h"
#include "mail/SmtpData.h"

namespace {

using namespace netro;

std::unique_ptr<ByteSource> InPieces(const std::string& text, std::size_t size) {
  const auto at = std::make_shared<std::size_t>(0);
  const auto read = [=, &text](std::span<std::uint8_t> room, std::size_t& got) {
    got = text.copy(reinterpret_cast<char*>(room.data()), std::min(room.size(), size), *at);
    *at += got;
    return 0;
  };
  return std::make_unique<FunctionSource>(read, text.size(), [=] { return *at = 0, true; });
}

std::string Sent(std::unique_ptr<ByteSource> message, std::size_t room) {
  FinishedText source(std::move(message), false);
  std::vector<std::uint8_t> block(room);
  std::string sent;
  for (std::size_t got = 1; got > 0;) {
    Require(source.Read(block, got) == 0 && got <= room);
    sent.append(reinterpret_cast<const char*>(block.data()), got);
  }
  return sent;
}

/// As a server reads it (RFC 5321, section 4.5.2).
std::string Received(SmtpData& data, std::size_t blockSize) {
  std::string wire;
  for (auto block = data.Next(blockSize); !block.empty(); block = data.Next(blockSize))
    wire += block;
  Require(wire.size() == data.Size());
  std::string text;
  for (std::size_t at = 0, end = 0; at < wire.size(); at = end + 2) {
    end = wire.find("\r\n", at);
    Require(end != wire.npos);
    const std::string line = wire.substr(at, end - at);
    Require((line == ".") == (end + 2 == wire.size()));
    if (line != ".") text += (line.starts_with('.') ? line.substr(1) : line) + "\r\n";
  }
  return text;
}

void CheckLines(const std::string& sent) {
  bool header = true;
  for (std::size_t at = 0, end = 0; at < sent.size(); at = end + 2) {
    end = sent.find_first_of("\r\n", at);
    Require(end != sent.npos && sent.substr(end, 2) == "\r\n");
    header = header && end > at;
    if (header) Require(!IsBlindCopyName(sent.substr(at, sent.find(':', at) - at)));
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size == 0) return 0;
  const std::size_t piece = data[0] % 16 + 1U;
  const std::string text(data + 1, data + size);
  const std::string sent = Sent(std::make_unique<MemorySource>(text), 4096);
  Require(Sent(InPieces(text, piece), piece) == sent);
  CheckLines(sent);
  SmtpData wire(InPieces(sent, piece), DotRule::AllDots, LastLine::IsEnded);
  Require(wire.Error() == 0 && Received(wire, piece) == sent);
  std::string plain;
  Require(wire.AppendPlain(plain) && plain == sent);
  return 0;
}
