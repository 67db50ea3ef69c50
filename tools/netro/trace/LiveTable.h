// The table of "netro trace --live" and "--report". Thread: the loop's.
#pragma once

#include <cstddef>
#include <string>
#include <utility>
#include <vector>

#include "trace/LiveTrace.h"
#include "trace/TraceNames.h"
#include "trace/TraceOutput.h"

namespace netro::tool {

/// Headings, a row for each hop, and below it its other addresses, MPLS labels and failure; no line
/// is longer than `width`, where that is not 0.
std::vector<std::string> LiveTableLines(const LiveTrace& trace, const TraceNames& names,
                                        std::size_t width);

/// The table redrawn in place on a terminal: nothing of the terminal's state is changed, so there
/// is nothing to put back. Elsewhere nothing is drawn until the end.
class LiveTable {
 public:
  LiveTable(const TraceOptions& options, const std::string& address);

  /// False when the output can no longer be written to.
  bool Draw(const LiveTrace& trace, const TraceNames& names);
  /// The whole table, however many rows the terminal has.
  void Finish(const LiveTrace& trace, const TraceNames& names);

 private:
  std::string Head(const LiveTrace& trace) const;
  void Write(std::vector<std::string> lines);

  const TraceOptions& options_;
  const std::string& address_;
  std::pair<int, int> size_{0, 0};  // of the terminal, when it was drawn on
  std::size_t drawn_ = 0;           // lines above the cursor
};

void PrintLiveJson(const TraceOptions& options, const TraceEnd& end, const LiveTrace* trace,
                   const TraceNames& names);

}  // namespace netro::tool
