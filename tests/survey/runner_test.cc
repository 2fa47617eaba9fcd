#include "survey/runner.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <csignal>
#include <map>

namespace velmo {
namespace {

CellPlan cell_of(int node, const char* kind = kIdleLatency, double seconds = 0) {
  CellPlan plan;
  plan.cell.kind = kind;
  plan.cell.memory.node = node;
  plan.seconds = seconds;
  return plan;
}

ChildResult measured(double average, bool disturbed = false) {
  ChildResult result{.measured = MeasuredRepeat(), .message = {}};
  result.measured->repeat.figures = {{kAverageNs, average}, {kP99Ns, average}};
  if (disturbed) result.measured->repeat.disturbed_by.push_back({"stolen_time", 1, 0.5, "%"});
  result.measured->samples[static_cast<int64_t>(average * 10)] = 1000;
  return result;
}

ChildResult failure(const char* why) { return {.measured = std::nullopt, .message = why}; }

// A survey's cell, whose n-th repeat, from 0 on, is `repeat(n)`. Another one takes so long that a
// tenth of the survey's time is several of these.
Cell cell_after(const std::function<ChildResult(int)>& repeat) {
  int n = 0;
  Runner runner(
      {cell_of(0), cell_of(1)}, {.seed = 1},
      [&](const CellPlan& plan, double) {
        if (plan.cell.memory.node == 0) return repeat(n++);
        usleep(5000);
        return measured(100);
      },
      [](const RunnerProgress&) {});
  runner.Run();
  return runner.TakeCells().front();
}

TEST(SurveyRunner, RepeatsUntilACellIsKnown) {
  const auto spread = [](int n) { return n % 2 == 0 ? 100.0 : 110.0; };
  const struct {
    std::function<ChildResult(int)> repeat;
    size_t least, most;  // repeats
    std::string stopped_by, state, message;
  } cases[] = {
      {[](int) { return measured(100); }, 6, 6, "precision", kOk, ""},
      {[&](int n) { return measured(spread(n)); }, 7, 7, "repeats", kOk, ""},
      {[](int) { return failure("Broken"); }, 2, 2, kFailed, kFailed, "Broken"},
      {[](int n) { return n == 1 ? failure("Killed") : measured(100); }, 7, 7, "precision", kOk,
       "1 of 7 repeats failed: Killed"},
      {[](int n) { return n > 1 ? failure("Killed") : measured(100); }, 4, 4, kFailed, kOk,
       "2 of 4 repeats failed: Killed"},
      {[&](int n) { return measured(spread(n), true); }, 8, 9, "repeats", kDisturbed, ""},
      {[&](int n) { return measured(spread(n), n == 2); }, 8, 8, "repeats", kOk, ""},
  };
  for (const auto& c : cases) {
    const Cell cell = cell_after(c.repeat);
    SCOPED_TRACE(&c - cases);
    EXPECT_GE(cell.repeats.size(), c.least);
    EXPECT_LE(cell.repeats.size(), c.most);
    EXPECT_EQ(std::tuple(cell.stopped_by, cell.state, cell.message),
              std::tuple(c.stopped_by, c.state, c.message));
  }
}

TEST(SurveyRunner, PoolsTheRepeatsThatCount) {
  const Cell cell = cell_after([](int n) { return measured(n == 3 ? 900 : 100, n == 3); });
  EXPECT_EQ(cell.repeats.size(), 7U);
  EXPECT_EQ(cell.summary.at(kP99Ns).high, 100);
  ASSERT_TRUE(cell.histogram_ns);
  EXPECT_EQ(cell.histogram_ns->counts, std::vector<int64_t>{6000});
}

TEST(SurveyRunner, MarksWhatWasAskedForAndNotGot) {
  for (const bool got : {true, false}) {
    CellPlan plan = cell_of(0);
    plan.pages = PageSize::kThp;
    Runner runner(
        {plan}, {.seed = 1},
        [&](const CellPlan&, double) {
          ChildResult result = measured(100);
          result.measured->repeat.placement = {{"share_on_node", got ? 0.99 : 0.98},
                                               {"page_size_bytes", got ? 2 << 20 : 4096}};
          return result;
        },
        [](const RunnerProgress&) {});
    runner.Run();
    const std::vector<std::string> missed = {"placement", "page_size"};
    EXPECT_EQ(runner.TakeCells().front().marks, got ? std::vector<std::string>() : missed);
  }
}

TEST(SurveyRunner, RoundsAreOrderedByTheSeed) {
  const auto order_of = [](uint64_t seed) {
    std::vector<int> order;
    std::vector<CellPlan> plan;
    for (int node = 0; node < 8; ++node) plan.push_back(cell_of(node));
    Runner runner(
        plan, {.seed = seed}, [](const CellPlan&, double) { return measured(100); },
        [&](const RunnerProgress& at) { order.push_back(*at.plan.cell.memory.node); });
    runner.Run();
    return order;
  };
  const std::vector<int> order = order_of(1);
  ASSERT_EQ(order.size(), 48U);
  for (auto round = order.begin(); round != order.end(); round += 8) {
    EXPECT_EQ(std::set(round, round + 8).size(), 8U);
  }
  EXPECT_NE(std::vector(order.begin(), order.begin() + 8),
            std::vector(order.begin() + 8, order.begin() + 16));
  EXPECT_EQ(order, order_of(1));
  EXPECT_NE(order, order_of(2));
}

TEST(SurveyRunner, PassesOverACurveKeepItsDelays) {
  std::vector<size_t> delays_given;
  CellPlan plan = cell_of(0, kLoadedLatency);
  plan.most_repeats = 2;
  Runner runner(
      {plan}, {.seed = 1},
      [&](const CellPlan& cell, double) {
        delays_given.push_back(cell.delays.size());
        ChildResult result = measured(100);
        result.measured->samples.clear();
        for (const int64_t delay : {0, 50}) {
          Repeat repeat;
          repeat.figures = {{kAverageNs, 100}, {kP999Ns, 5}, {kBytesPerSecond, 1000.0 - delay}};
          result.measured->points.push_back({delay, repeat, {{1500, 4000}}});
        }
        return result;
      },
      [](const RunnerProgress&) {});
  runner.Run();
  const Cell cell = runner.TakeCells().front();
  EXPECT_EQ(delays_given, (std::vector<size_t>{0, 2}));
  ASSERT_EQ(cell.points.size(), 2U);
  EXPECT_EQ(cell.points[1].delay, 50);
  EXPECT_EQ(cell.points[1].repeats.size(), 2U);
  EXPECT_EQ(cell.points[1].histogram_ns.value_or(Histogram()).counts, std::vector<int64_t>{8000});
  EXPECT_EQ(cell.summary.at(kBytesPerSecond).median, 1000);
  // 8,000 samples have no 99.9th percentile.
  EXPECT_EQ(cell.points[1].summary.count(kP999Ns), 0U);
}

TEST(SurveyRunner, TellsWhatTheTimeLimitOrASignalSkipped) {
  for (const bool limited : {false, true}) {
    const EndSignalsNoted signals;
    int n = 0;
    Runner runner(
        {cell_of(0), cell_of(1), cell_of(2, kIdleLatency, limited ? 1000 : 0)},
        {.seed = 1, .time_limit = limited ? 100.0 : 0},
        [&](const CellPlan&, double) {
          if (!limited && n == 1) std::raise(SIGINT);
          return ++n < 2 || limited ? measured(100) : failure("Interrupted");
        },
        [](const RunnerProgress&) {});
    runner.Run();
    const std::vector<Cell> cells = runner.TakeCells();
    EXPECT_EQ(runner.skipped(), limited ? 1 : 2);
    int failed = 0;
    for (const Cell& cell : cells) {
      // What fits in the time is measured beside a cell that does not.
      const char* const other = limited ? "precision" : kInterrupted;
      EXPECT_EQ(cell.stopped_by, limited && cell.repeats.empty() ? "time_limit" : other);
      EXPECT_EQ(cell.state == kFailed, cell.repeats.empty());
      EXPECT_EQ(cell.message.empty(), cell.state != kFailed) << cell.message;
      failed += cell.state == kFailed ? 1 : 0;
    }
    EXPECT_EQ(failed, runner.skipped());
  }
}

}  // namespace
}  // namespace velmo
