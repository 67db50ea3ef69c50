// What the servers of the tour received and sent, in the order in which it happened.
// Thread: the loop's.
#pragma once

#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace netro::tool {

struct TourMessage {
  std::string server;  // "HTTP server"
  bool fromClient = false;
  std::string bytes;
  std::string meaning;  // for bytes that are no text: "greeting, no authentication"
};

class TourJournal {
 public:
  void Add(TourMessage message) {
    // Blocks of one text belong together, however the network cut them.
    if (message.meaning.empty() && !messages_.empty() && messages_.back().meaning.empty() &&
        messages_.back().server == message.server &&
        messages_.back().fromClient == message.fromClient) {
      messages_.back().bytes += message.bytes;
    } else {
      messages_.push_back(std::move(message));
    }
  }

  /// True when a client sent `text` to any server.
  bool WasSent(std::string_view text) const {
    for (const TourMessage& message : messages_) {
      if (message.fromClient && message.bytes.find(text) != message.bytes.npos) return true;
    }
    return false;
  }

  /// Returns everything and begins anew.
  std::vector<TourMessage> Take() { return std::exchange(messages_, {}); }

 private:
  std::vector<TourMessage> messages_;
};

}  // namespace netro::tool
