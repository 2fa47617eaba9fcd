#include "survey/summary.h"

#include <gtest/gtest.h>

#include <numeric>

namespace velmo {
namespace {

Repeat repeat_of(double bytes, bool disturbed = false) {
  Repeat repeat;
  repeat.figures[kBytesPerSecond] = bytes;
  if (disturbed) repeat.disturbed_by.push_back({"stolen_time", 1, 0.5, "%"});
  return repeat;
}

// Ranks of the bounds as tables of the sign test have them, for the values 1 to n.
TEST(SurveySummary, IntervalsAreThoseOfOrderStatistics) {
  const struct {
    int n;
    double low, high;
    const char* interval;
  } cases[] = {{1, 1, 1, "range"},  {5, 1, 5, "range"},  {6, 1, 6, "95 %"},
               {8, 1, 8, "95 %"},   {9, 2, 8, "95 %"},   {15, 4, 12, "95 %"},
               {20, 6, 15, "95 %"}, {25, 8, 18, "95 %"}, {2000, 956, 1045, "95 %"}};
  for (const auto& c : cases) {
    std::vector<double> values(c.n);
    std::iota(values.rbegin(), values.rend(), 1);
    const Estimate e = estimate(values);
    EXPECT_EQ(std::tuple(e.median, e.low, e.high, e.interval),
              std::tuple((c.n + 1) / 2.0, c.low, c.high, c.interval))
        << c.n;
  }
}

TEST(SurveySummary, CleanRepeatsAreTakenWhereHalfAreClean) {
  std::vector<Repeat> repeats = {repeat_of(1), repeat_of(2), repeat_of(50, true), {}};
  EXPECT_EQ(summarize(repeats).at(kBytesPerSecond).high, 2);
  repeats.push_back(repeat_of(60, true));
  repeats.push_back(repeat_of(70, true));
  EXPECT_EQ(summarize(repeats).at(kBytesPerSecond).repeats, 5);
  EXPECT_TRUE(summarize({{}}).empty());
}

TEST(SurveySummary, PrecisionIsThatOfIntervalsAlone) {
  const auto precise = [](int n, double spread) {
    std::vector<Repeat> repeats(n, repeat_of(100));
    repeats.front() = repeat_of(100 - spread);
    repeats.back() = repeat_of(100 + spread);
    return is_precise(kBandwidth, summarize(repeats), 0.02);
  };
  EXPECT_TRUE(precise(6, 2));
  EXPECT_FALSE(precise(6, 2.1));
  EXPECT_FALSE(precise(5, 0));
}

TEST(SurveySummary, HistogramHoldsEverySampleInItsBin) {
  const Histogram histogram = log_histogram({{0, 1}, {799, 2}, {800, 4}, {12345, 8}});
  ASSERT_EQ(histogram.edges.size(), histogram.counts.size() + 1);
  const auto at = [&](double ns) {
    const auto above = std::upper_bound(histogram.edges.begin(), histogram.edges.end(), ns);
    return histogram.counts.at(above - histogram.edges.begin() - 1);
  };
  EXPECT_EQ(std::accumulate(histogram.counts.begin(), histogram.counts.end(), 0), 15);
  EXPECT_EQ(histogram.edges[0], 0);
  EXPECT_EQ(at(1234.5), 8);
  EXPECT_EQ(at(80), 6);
}

}  // namespace
}  // namespace velmo
