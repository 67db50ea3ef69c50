// Reads a server's replies whole and in pieces, and looks into the step tables. The first byte
// chooses: odd, two numbers and a table follow; even, it is the size of the pieces, the second byte
// tells where the first reply ends, and the rest is what the server sends.

#include "fuzz/Fuzz.h"
#include "mail/SmtpReply.h"
#include "mail/SmtpTables.h"

namespace {

// The rule as it is written: the first line, the unfinished last one included, with a blank as its
// fourth character and a number in front.
int CodeOf(std::string_view text) {
  for (;;) {
    const std::size_t end = text.find("\r\n");
    const std::string line(text.substr(0, end));
    const bool isDigit = !line.empty() && line[0] >= '0' && line[0] <= '9';
    if (line.size() > 3 && line[3] == ' ' && isDigit && std::atoi(line.c_str()) != 0) {
      return std::atoi(line.c_str());
    }
    if (end == text.npos) return 0;
    text.remove_prefix(end + 2);
  }
}

void Feed(netro::SmtpReply& reply, std::string_view bytes, std::size_t piece) {
  for (; !bytes.empty(); bytes.remove_prefix(std::min(piece, bytes.size()))) {
    if (!reply.Add(bytes.substr(0, piece))) std::abort();
  }
}

void ReadReplies(std::string_view bytes, std::size_t piece, std::size_t first) {
  std::string whole, cut;
  netro::SmtpReply inOne(whole), inPieces(cut);
  const std::string_view second = bytes.substr(std::min(first, bytes.size()));
  bytes = bytes.substr(0, first);
  Feed(inOne, bytes, bytes.size());
  Feed(inPieces, bytes, piece);
  if (inOne.Code() != CodeOf(bytes) || inPieces.Code() != inOne.Code()) std::abort();
  if (whole != bytes || cut != bytes) std::abort();
  inOne.Begin();
  inPieces.Begin();
  Feed(inOne, second, second.size());
  Feed(inPieces, second, piece);
  if (inPieces.Code() != inOne.Code() || whole != cut || !second.ends_with(whole)) std::abort();
}

void ReadTable(std::string_view table, int step, int code) {
  const std::string entry = std::to_string(step) + ':' + std::to_string(code);
  const bool inside = table.find(entry) != table.npos;
  if (netro::HasStepEntry(table, step, code) && !inside) std::abort();
  if (!netro::HasStepEntry(std::string(table) + ',' + entry, step, code)) std::abort();
  const double seconds = std::chrono::duration<double>(netro::StepTimeOut(table, step)).count();
  if (seconds < 0) std::abort();
  if (table.find(std::to_string(step) + ':') == table.npos && seconds != 60) std::abort();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size < 3 || size > 100'000) return 0;
  const std::string_view rest(reinterpret_cast<const char*>(data), size);
  if (data[0] % 2 != 0) {
    ReadTable(rest.substr(3), data[1], data[2] * 4);
  } else {
    ReadReplies(rest.substr(2), data[0] / 2 + 1u, data[1]);
  }
  return 0;
}
