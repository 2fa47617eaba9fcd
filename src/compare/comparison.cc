#include "compare/comparison.h"

#include <algorithm>
#include <cmath>
#include <set>
#include <stdexcept>
#include <tuple>
#include <utility>

#include "survey/curve.h"
#include "survey/repeats.h"

namespace velmo {
namespace {

constexpr const char* kLatencies[] = {kAverageNs, kMedianNs, kP99Ns, kP999Ns};

// Shares of the smaller peak at which loaded curves are compared.
constexpr double kLoads[] = {0.1, 0.5, 0.9};

// The repeats of a cell, or what is derived from a curve, one list for each survey of a side.
using Lists = std::vector<std::vector<Repeat>>;

std::vector<double> values_of(const Lists& lists, bool sets, std::string_view figure) {
  std::vector<double> values;
  for (const std::vector<Repeat>& repeats : lists) {
    std::vector<double> counted = counted_values(repeats, figure);
    if (!sets) return counted;
    if (!counted.empty()) values.push_back(median(std::move(counted)));
  }
  return values;
}

bool any_counted_disturbed(const Lists& lists) {
  return std::any_of(lists.begin(), lists.end(), [](const std::vector<Repeat>& repeats) {
    const std::vector<const Repeat*> counted = counted_repeats(repeats);
    return std::any_of(counted.begin(), counted.end(),
                       [](const Repeat* repeat) { return !repeat->disturbed_by.empty(); });
  });
}

void add_marks(const std::vector<const Cell*>& cells, const Lists& lists, const std::string& side,
               std::vector<std::string>& marks) {
  std::set<std::string> names;
  if (any_counted_disturbed(lists)) names.insert(kDisturbed);
  for (const Cell* cell : cells) {
    if (cell->state == kDisturbed || cell->state == kFailed) names.insert(cell->state);
    names.insert(cell->marks.begin(), cell->marks.end());
  }
  const std::string place = " (" + side + ")";
  for (const std::string& name : names) marks.push_back(name + place);
}

// The message of a cell that failed, behind the side; empty where none failed.
std::string failure_of(const std::vector<const Cell*>& cells, const std::string& side) {
  const auto found = std::find_if(cells.begin(), cells.end(),
                                  [](const Cell* cell) { return cell->state == kFailed; });
  if (found == cells.end()) return {};
  return "failed in " + side + ((*found)->message.empty() ? "" : ": " + (*found)->message);
}

class Collector {
 public:
  Collector(bool sets, std::vector<Finding>& findings) : sets_(sets), findings_(findings) {}

  void Add(const CellPair& pair) {
    const std::string& kind = pair.any().kind;
    if (kind == kLoadedLatency) {
      AddCurve(pair);
      return;
    }
    const auto repeats = [](const Cell& cell) { return cell.repeats; };
    const Lists old_lists = derive(pair.old_cells, repeats);
    const Lists new_lists = derive(pair.new_cells, repeats);
    if (kind == kBandwidth) {
      AddFigure(pair, kBytesPerSecond, old_lists, new_lists, {});
    } else {
      AddLatencies(pair, old_lists, new_lists, {});
    }
  }

 private:
  // A cell that failed gives nothing, whatever it measured before.
  template <typename Derived>
  static Lists derive(const std::vector<const Cell*>& cells, const Derived& derived) {
    Lists lists;
    for (const Cell* cell : cells) {
      lists.push_back(cell->state == kFailed ? std::vector<Repeat>{} : derived(*cell));
    }
    return lists;
  }

  void AddCurve(const CellPair& pair) {
    const Lists old_peaks = derive(pair.old_cells, curve_peaks);
    const Lists new_peaks = derive(pair.new_cells, curve_peaks);
    AddFigure(pair, kBytesPerSecond, old_peaks, new_peaks, {});
    const Finding& peaks = findings_.back();
    if (peaks.old_values.empty() || peaks.new_values.empty()) return;
    const double smaller = std::min(median(peaks.old_values), median(peaks.new_values));
    for (const double load : kLoads) {
      const auto at_load = [&](const Cell& cell) { return curve_latencies(cell, load * smaller); };
      AddLatencies(pair, derive(pair.old_cells, at_load), derive(pair.new_cells, at_load), load);
    }
  }

  void AddLatencies(const CellPair& pair, const Lists& old_lists, const Lists& new_lists,
                    std::optional<double> load) {
    for (const char* figure : kLatencies) AddFigure(pair, figure, old_lists, new_lists, load);
  }

  // A figure that neither side has is left out, but for the one that the cell is for.
  void AddFigure(const CellPair& pair, const char* figure, const Lists& old_lists,
                 const Lists& new_lists, std::optional<double> load) {
    Finding finding;
    finding.cell = &pair.any();
    finding.figure = figure;
    finding.load = load;
    finding.old_values = values_of(old_lists, sets_, figure);
    finding.new_values = values_of(new_lists, sets_, figure);
    if (finding.old_values.empty() && finding.new_values.empty() && !is_headline(figure)) return;
    add_marks(pair.old_cells, old_lists, "old", finding.marks);
    add_marks(pair.new_cells, new_lists, "new", finding.marks);
    if (finding.old_values.empty()) finding.reason = failure_of(pair.old_cells, "old");
    if (finding.new_values.empty() && finding.reason.empty()) {
      finding.reason = failure_of(pair.new_cells, "new");
    }
    findings_.push_back(std::move(finding));
  }

  bool sets_;
  std::vector<Finding>& findings_;
};

// Worse before better before unclear before same, the larger change first, but percentiles, which
// are seldom clear, behind the rest where nothing was found. Last those without a verdict.
void sort_findings(std::vector<Finding>& findings) {
  const auto rank = [](const Finding& finding) {
    const bool found = finding.verdict == Verdict::kWorse || finding.verdict == Verdict::kBetter;
    return std::tuple(!finding.reason.empty(), finding.verdict,
                      !found && !is_headline(finding.figure), -std::abs(finding.change.estimate));
  };
  std::stable_sort(findings.begin(), findings.end(),
                   [&](const Finding& a, const Finding& b) { return rank(a) < rank(b); });
}

}  // namespace

int Comparison::count(Verdict verdict) const {
  return static_cast<int>(
      std::count_if(findings.begin(), findings.end(), [&](const Finding& finding) {
        return finding.reason.empty() && finding.verdict == verdict;
      }));
}

int Comparison::without_verdict() const {
  return static_cast<int>(
      std::count_if(findings.begin(), findings.end(),
                    [](const Finding& finding) { return !finding.reason.empty(); }));
}

Comparison compare(const Side& old_side, const Side& new_side, double margin_percent) {
  Comparison comparison;
  comparison.old_side = &old_side;
  comparison.new_side = &new_side;
  comparison.sets = old_side.surveys.size() > 1 || new_side.surveys.size() > 1;
  comparison.margin_percent = margin_percent;

  const std::vector<CellPair> pairs = match_cells(old_side, new_side);
  Collector collector(comparison.sets, comparison.findings);
  bool any = false;
  for (const CellPair& pair : pairs) {
    if (pair.matched()) {
      collector.Add(pair);
      any = true;
    } else {
      (pair.old_cells.empty() ? comparison.only_new : comparison.only_old).push_back(pair.key);
    }
  }
  if (!any) {
    throw std::runtime_error("Nothing to compare: no cell of " + old_side.path +
                             " has its like in " + new_side.path);
  }
  comparison.differences = find_differences(old_side, new_side, pairs);
  judge(comparison.findings, std::log1p(margin_percent / 100), comparison.sets);
  sort_findings(comparison.findings);
  return comparison;
}

double percent_of(double logarithm) { return 100 * std::expm1(logarithm); }

}  // namespace velmo
