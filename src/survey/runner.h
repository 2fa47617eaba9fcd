// The rounds of a survey: every cell once a round, in an order of its own, until each is known well
// enough.

#pragma once

#include <cstdint>
#include <functional>
#include <set>
#include <string>
#include <vector>

#include "survey/child.h"
#include "survey/plan.h"
#include "survey/summary.h"

namespace velmo {

// A repeat that is about to be measured.
struct RunnerProgress {
  const CellPlan& plan;
  int round;
  size_t number;        // of the cell, from 1 on
  size_t cells;         // that are measured
  double seconds_left;  // roughly
};

struct RunnerSettings {
  uint64_t seed = 0;
  double time_limit = 0;        // s from now; 0: none
  double ticks_per_second = 0;  // of the time-stamp counter
};

// Measures the cells of a plan.
class Runner {
 public:
  using Measure = std::function<ChildResult(const CellPlan&, double limit)>;
  using Observer = std::function<void(const RunnerProgress&)>;

  // `measure` measures a repeat within a limit in seconds; `observe` is told before each.
  Runner(std::vector<CellPlan> plan, const RunnerSettings& settings, Measure measure,
         Observer observe);

  // Measures until every cell has stopped, the time is up or an end signal came.
  void Run();

  // The cells with what was measured of them; may be asked once.
  std::vector<Cell> TakeCells();

  // Of the cells that were taken, those without a repeat: the time was up, or an end signal came.
  int skipped() const { return skipped_; }

 private:
  // Samples of several repeats: of all of them, and of the undisturbed ones.
  struct Pool {
    Samples all = {};
    Samples clean = {};
    void Add(const Repeat& repeat, const Samples& samples);
  };

  struct Running {
    CellPlan plan;
    Pool pool = {};
    std::vector<Pool> point_pools = {};  // of each point
    int failures = 0;                    // repeats that failed
    double seconds = 0;                  // of a repeat, the longest so far
    bool done() const { return !plan.cell.stopped_by.empty(); }
  };

  void MeasureOnce(Running& cell, int round);
  void Add(Running& cell, int round, ChildResult result);
  static void AddPoints(Running& cell, int round, const MeasuredRepeat& measured);
  void Decide(Running& cell);
  bool AllowsExtra(const Running& cell) const;
  void Finish(Running& cell);
  double SecondsLeft() const;

  std::vector<Running> cells_;
  RunnerSettings settings_;
  Measure measure_;
  Observer observe_;
  long start_;
  double extra_seconds_ = 0;  // spent on repeats in place of disturbed ones
  int skipped_ = 0;           // found by TakeCells
};

}  // namespace velmo
