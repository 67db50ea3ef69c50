// A relay between client and server that ends the connection behind the n-th byte of one direction,
// counted over all connections, by an orderly end or by a reset, or passes on nothing more that
// way.
#pragma once

#include <netro/testkit/LoopbackServer.h>

#include <atomic>
#include <cstddef>


namespace netro::torture {

/// Where the relays of a scenario cut; once, then they pass everything on.
struct Cut {
  enum Direction { FromServer, FromClient };
  enum End { Closed, Reset, Silent };

  static constexpr long kNever = 1L << 40;
  std::atomic<long> left[2] = {kNever, kNever};
  std::atomic<long> passed[2] = {0, 0};
  std::atomic<End> end = Closed;

  void At(Direction direction, long bytes, End by);
  void Never();
};

class CutRelay {
 public:
  CutRelay(int target, Cut& cut);
  int Port() const { return server_.Port(); }

 private:
  void Serve(testkit::Connection& client);
  bool Pass(testkit::Connection& from, testkit::Connection& to, Cut::Direction direction);

  const int target_;
  Cut& cut_;
  testkit::LoopbackServer server_;
};

}  // namespace netro::torture
