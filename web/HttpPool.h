// Open connections of this thread that wait for the next request (RFC 9112, section 9.3). Whoever
// takes one out owns it. What waits is closed after 15 seconds, when its peer closes it or sends
// something that nobody asked for, and, the oldest first, when there are more than 32.
#pragma once

#include <netro/SocketCls.h>

#include <cstddef>
#include <cstdint>
#include <list>
#include <memory>
#include <string>

#include "platform/Clock.h"

namespace netro {

class Loop;

class HttpPool : public std::enable_shared_from_this<HttpPool> {
 public:
  static const std::shared_ptr<HttpPool>& ForThread();

  explicit HttpPool(std::shared_ptr<Loop> loop);
  ~HttpPool();
  void ThreadEnds();

  /// The youngest connection that was given with this key; null when there is none. The key says
  /// where it leads, through what, and for whom.
  std::unique_ptr<SocketCls> Take(const std::string& key);
  /// `meant` is what the key names by its address; it lives as long as the connection waits, so
  /// that nothing else can have that address.
  void Give(std::string key, std::unique_ptr<SocketCls> socket, std::shared_ptr<const void> meant);
  /// Closes all that waits. False: nothing did.
  bool Clear();
  std::size_t Count() const { return idle_.size(); }

 private:
  class Idle;

  void Drop(const Idle& idle);
  void DropOld();
  void SetAlarm();

  std::shared_ptr<Loop> loop_;
  std::list<std::unique_ptr<Idle>> idle_;  // the youngest first
  std::int32_t timer_ = 0;
};

}  // namespace netro
