// What the scripted servers answer with: bytes, where to cut them, how long to wait before, and
// what comes after.
#pragma once

#include <chrono>
#include <cstddef>
#include <string>
#include <utility>
#include <vector>

namespace netro::testkit {

/// What follows an answer: the dialogue, an orderly end, a reset, or silence until the client ends
/// the connection.
enum class After { GoOn, Close, Reset, Stay };

/// Text converts to one: `return "250 ok\r\n";`.
struct Response {
  /// These bytes, what follows behind them, and how they go out.
  Response(const char* text) : bytes(text) {}
  Response(std::string text, After then = After::GoOn, std::vector<std::size_t> at = {},
           std::chrono::milliseconds before = {})
      : bytes(std::move(text)), after(then), cuts(std::move(at)), delay(before) {}

  std::string bytes;                   // as they go out
  After after = After::GoOn;           // what follows
  std::vector<std::size_t> cuts;       // see Connection::SendCut
  std::chrono::milliseconds delay{0};  // before the first byte
};

}  // namespace netro::testkit
