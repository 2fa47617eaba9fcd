// The figures come from SciPy 1.10.1 (mannwhitneyu with method="exact", ttest_ind with
// equal_var=False, t.isf); the critical values of U from the usual table for 5 %, two-sided.

#include "compare/contrast.h"

#include <gtest/gtest.h>

#include <cmath>

#include "compare/rank_test.h"

namespace velmo_test {

using namespace velmo;  // NOLINT(google-build-using-namespace)

TEST(RankDistribution, AgreesWithTablesAndSciPy) {
  const struct {
    size_t n, m, u;
    double p;  // P(U <= u)
  } cases[] = {{3, 4, 0, 0.0285714285714},   {3, 4, 6, 0.571428571429},
               {5, 8, 3, 0.00543900543901},  {8, 5, 20, 0.528360528361},
               {7, 7, 0, 0.000291375291375}, {7, 7, 1, 0.000582750582751},
               {12, 15, 90, 0.509565712103}, {20, 20, 138, 0.0482497762181}};
  for (const auto& c : cases) EXPECT_NEAR(rank_distribution(c.n, c.m)[c.u], c.p, c.p * 1e-11);

  const struct {
    size_t n, m, critical;
  } table[] = {{5, 8, 6}, {7, 7, 8}, {12, 15, 49}, {20, 20, 127}};
  for (const auto& [n, m, critical] : table) {
    EXPECT_LE(2 * rank_distribution(n, m)[critical], 0.05) << n << ' ' << m;
    EXPECT_GT(2 * rank_distribution(n, m)[critical + 1], 0.05) << n << ' ' << m;
  }
  EXPECT_DOUBLE_EQ(smallest_rank_p(7, 7), 2.0 / 3432);
}

TEST(Contrast, AgreesWithSciPy) {
  std::vector<double> a = {100.1, 99.8, 100.6, 100.3, 99.9, 100.0, 104.0};
  std::vector<double> b = {102.0, 101.7, 102.9, 101.2, 102.4, 102.2, 101.9};
  for (double& value : a) value = std::log(value);
  for (double& value : b) value = std::log(value);

  const Contrast exact(a, b, 0.00125);
  EXPECT_TRUE(exact.exact());
  EXPECT_NEAR(exact.p_beyond(0), 0.026223776223776224, 1e-12);
  EXPECT_NEAR(exact.p_beyond(0.01), 0.05303030303030303, 1e-12);
  EXPECT_NEAR(Contrast(b, a, 0.05).p_beyond(0.01), 0.05303030303030303, 1e-12);
  const struct {
    double level, low, high;
  } intervals[] = {{0.05, 0.008933061885475269, 0.02371652661731627},
                   {0.01, -0.017459221371768585, 0.0257185292879889},
                   {0.00125, -0.02236359608685845, 0.02958795718549556}};
  for (const auto& [level, low, high] : intervals) {
    const Interval interval = exact.interval(level);
    EXPECT_NEAR(interval.estimate, 0.01785761740000602, 1e-14);
    EXPECT_NEAR(interval.low, low, 1e-14) << level;
    EXPECT_NEAR(interval.high, high, 1e-14) << level;
  }

  const Contrast student(a, b, 0.0001);  // which 7 and 7 values cannot reach by their order
  EXPECT_FALSE(student.exact());
  EXPECT_NEAR(student.p_beyond(0), 0.051181037061748036, 1e-9);
  EXPECT_NEAR(student.p_beyond(0.01), 0.5570229462157146, 1e-9);
  EXPECT_NEAR(student.interval(0.05).estimate, 0.013611464797108397, 1e-12);
  EXPECT_NEAR(student.interval(0.05).high, 0.027313118457607075, 1e-9);
  EXPECT_NEAR(student.interval(0.0001).low, -0.030113022067651443, 1e-9);
}

TEST(Contrast, KnowsWhatIsEnough) {
  EXPECT_TRUE(Contrast::enough(4, 9));
  EXPECT_FALSE(Contrast::enough(3, 9));
  EXPECT_FALSE(Contrast({1, 1, 1, 1}, {2, 2, 2, 2}, 0.001).usable());
  EXPECT_TRUE(Contrast({1, 1, 1, 1}, {2, 2, 2, 2.1}, 0.001).usable());
  EXPECT_TRUE(Contrast({1, 1, 1, 1}, {2, 2, 2, 2}, 0.05).usable());
}

TEST(HolmLevels, StepsDownByWeight) {
  EXPECT_EQ(holm_levels({{0.03, 1}, {0.012, 1}, {0.2, 1}, {0.01, 1}}, 0.05),
            std::vector<double>(4, 0.05 / 2));
  EXPECT_EQ(holm_levels({{0.04, 1}, {0.01, 1}}, 0.05), std::vector<double>(2, 0.05));
  // 0.0009 is below 0.05 * 0.02 / 1.04, after which 0.001 is above 0.05 * 0.02 / 1.02.
  const std::vector<double> levels = holm_levels({{0.06, 1}, {0.001, 0.02}, {0.0009, 0.02}}, 0.05);
  EXPECT_DOUBLE_EQ(levels[0], 0.05 / 1.02);
  EXPECT_DOUBLE_EQ(levels[1], 0.05 * 0.02 / 1.02);
  EXPECT_TRUE(holm_levels({}, 0.05).empty());
}

}  // namespace velmo_test
