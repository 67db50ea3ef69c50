// A line for each transfer that is under way, at the end of a terminal's standard error. Nothing is
// drawn when standard error is no terminal, NO_COLOR is set or the program runs in the background.
// Thread: the loop's, whose timer redraws the lines.
//
//     ProgressLines lines;
//     const ProgressLines::Line line(lines, url, [&] { return Progress{http.ReceivedBytes(), -1};
//     }); http.HTTPQuery(timeout);
#pragma once

#include <cstddef>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "terminal/Timer.h"
#include "terminal/Transfer.h"

namespace netro::tool {

struct Progress {
  double done = 0;
  double total = -1;  // below 0: unknown
};

class ProgressLines {
 public:
  /// Is shown as long as it lives; `lines` must live longer.
  class Line {
   public:
    /// `label` stands before the figures, shortened where it is long; it may be empty.
    Line(ProgressLines& lines, const std::string& label, std::function<Progress()> progress);
    ~Line();
    Line(const Line&) = delete;
    Line& operator=(const Line&) = delete;

   private:
    friend ProgressLines;

    ProgressLines& lines_;
    const std::string label_;
    const std::function<Progress()> progress_;
    Transfer transfer_;
  };

  ProgressLines();
  ~ProgressLines() { Clear(); }
  ProgressLines(const ProgressLines&) = delete;
  ProgressLines& operator=(const ProgressLines&) = delete;

  /// What to show below the lines; nothing at first.
  void Footer(std::string text) { footer_ = std::move(text); }

  /// Removes the lines, for other output; they come back within a tenth of a second.
  void Clear();

  /// The same, and brings them back after `print`, which flushes.
  template <class Print>
  void MakeRoomFor(Print print) {
    const bool shown = drawn_ > 0;
    Clear();
    print();
    if (shown) Draw();
  }

 private:
  void Redraw();
  void Draw();
  std::vector<std::string> Texts() const;
  std::size_t LabelWidth(std::size_t width) const;

  std::vector<Line*> lines_;  // null: the place of one that has ended, for the next
  std::string footer_;
  std::size_t drawn_ = 0;        // lines on the terminal, the cursor being at the end of the last
  std::optional<Timer> redraw_;  // none where nothing is drawn
};

}  // namespace netro::tool
