#include "web/TimeIntersection.h"

#include <algorithm>
#include <cstddef>

namespace netro {
namespace {

enum class Kind { Low = -1, Middle = 0, High = 1 };

struct Edge {
  double at = 0;
  Kind kind = Kind::Low;
};

// Where intervals only touch, one begins before the other ends.
bool ComesBefore(const Edge& a, const Edge& b) {
  return a.at < b.at || (a.at == b.at && a.kind < b.kind);
}

std::vector<Edge> SortedEdges(std::span<const TimeInterval> clocks) {
  std::vector<Edge> edges;
  for (const TimeInterval& clock : clocks) {
    edges.push_back({clock.offset - clock.radius, Kind::Low});
    edges.push_back({clock.offset, Kind::Middle});
    edges.push_back({clock.offset + clock.radius, Kind::High});
  }
  std::ranges::sort(edges, ComesBefore);
  return edges;
}

// Goes along the edges to the first point that lies in `wanted` intervals; `opens` is how one
// begins in this direction. The middles on the way are counted.
template <class Edges>
std::optional<double> FirstPointIn(std::size_t wanted, Kind opens, const Edges& begin,
                                   const Edges& end, std::size_t& middles) {
  std::size_t open = 0;
  for (auto edge = begin; edge != end; ++edge) {
    if (edge->kind == Kind::Middle) {
      ++middles;
    } else if (edge->kind != opens) {
      --open;
    } else if (++open >= wanted) {
      return edge->at;
    }
  }
  return std::nullopt;
}

}  // namespace

std::optional<TimeAgreement> FindAgreement(std::span<const TimeInterval> clocks) {
  const std::vector<Edge> edges = SortedEdges(clocks);
  for (std::size_t falseTickers = 0; 2 * falseTickers < clocks.size(); ++falseTickers) {
    const std::size_t wanted = clocks.size() - falseTickers;
    std::size_t outside = 0;
    const auto low = FirstPointIn(wanted, Kind::Low, edges.begin(), edges.end(), outside);
    const auto high = FirstPointIn(wanted, Kind::High, edges.rbegin(), edges.rend(), outside);
    if (!low || !high || outside > falseTickers || *low > *high) continue;
    TimeAgreement agreement{*low, *high, {}};
    for (const TimeInterval& clock : clocks) {
      agreement.agrees.push_back(clock.offset - clock.radius <= *high &&
                                 clock.offset + clock.radius >= *low);
    }
    return agreement;
  }
  return std::nullopt;
}

}  // namespace netro
