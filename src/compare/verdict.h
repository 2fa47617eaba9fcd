// Better, worse, same or unclear: what the values of two sides allow to be said.

#pragma once

#include <optional>
#include <string>
#include <vector>

#include "compare/contrast.h"
#include "survey/record.h"

namespace velmo {

// In the order in which they are told.
enum class Verdict { kWorse, kBetter, kUnclear, kSame };

// One figure of one cell on both sides. The values are one for each repeat that counts or, where a
// side has several surveys, one for each survey.
struct Finding {
  const Cell* cell = nullptr;  // one of the cells, for what it is
  std::string figure;
  std::optional<double> load;  // of loaded latency: share of the smaller peak at which it is taken
  std::vector<double> old_values;
  std::vector<double> new_values;
  std::vector<std::string> marks;  // what makes it doubtful: "disturbed (old)", "placement (new)"

  Verdict verdict = Verdict::kUnclear;
  std::string reason;  // why nothing can be said; the members below are not set then
  // Of the logarithms: 0.01 is about 1 %.
  double margin = 0;
  Interval change;
  double level = 0;    // the interval holds with 1 - level
  bool exact = false;  // by Mann and Whitney's distribution, else by Student's t

  // The smallest change that would have been called better or worse, as good as always.
  double visible_change() const { return margin + change.high - change.low; }
};

// The figure that a cell is for, beside which percentiles are further detail.
bool is_headline(const std::string& figure);

// Whether a larger value of the figure is the better one.
bool larger_is_better(const std::string& figure);

// Gives each finding without a reason its verdict, or the reason why there is none. A change is
// better or worse only beyond the margin: `margin`, a logarithm, or with `sets`, where that is
// larger, the distance that half of the surveys keep from the median of their side. Holm's
// correction over all findings: the probability that any true change within its margin is called
// better or worse is 5 % at most. Headlines have most of that.
void judge(std::vector<Finding>& findings, double margin, bool sets);

}  // namespace velmo
