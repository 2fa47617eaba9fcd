// What the verdicts are worth, tried on made-up surveys: 20 cells of idle latency with percentiles
// and 20 of bandwidth. Seeds are fixed. VELMO_COMPARISONS=1000 tries more than every test run
// needs.

#include <gtest/gtest.h>

#include <cmath>
#include <cstdlib>
#include <random>

#include "compare/comparison.h"
#include "compare/sample.h"

namespace velmo_test {

using namespace velmo;  // NOLINT(google-build-using-namespace)

constexpr int kCells = 40;
constexpr int kChanged = 3;  // a cell of idle latency

// Spreads are those of logarithms. Percentiles spread ten times as much as averages.
struct World {
  const char* name;
  int surveys;  // a side
  int repeats;
  double spread;
  double between_surveys;
  double outliers;     // share of repeats that are 5 to 30 % off, to the bad side
  double change;       // of one cell
  double most_false;   // share of comparisons that may call another cell better or worse
  double least_found;  // share that must call the changed cell worse
  double most_found;
  int comparisons;
};

class Maker {
 public:
  explicit Maker(const World& world) : world_(world) {}

  Side MakeSide(double change) {
    Side side;
    for (int s = 0; s < world_.surveys; ++s) {
      std::vector<Cell> cells;
      for (int c = 0; c < kCells; ++c) cells.push_back(OneCell(c, c == kChanged ? change : 0));
      side.surveys.push_back(SurveyOf(std::move(cells)));
    }
    return side;
  }

 private:
  Cell OneCell(int number, double change) {
    const bool latency = number < kCells / 2;
    Cell cell = MakeCell(latency ? kIdleLatency : kBandwidth, number);
    const double shift = std::log1p(change) + world_.between_surveys * normal_(random_);
    for (int round = 1; round <= world_.repeats; ++round) {
      const bool outlier = uniform_(random_) < world_.outliers;
      const double off = outlier ? 0.05 + 0.25 * uniform_(random_) : 0;
      const double scale =
          std::exp(shift + world_.spread * normal_(random_) + (latency ? off : -off));
      const auto tail = [&](double ns) {
        return ns * scale * std::exp(10 * world_.spread * normal_(random_));
      };
      cell.repeats.push_back(latency ? MakeRepeat(round, {{kAverageNs, 110 * scale},
                                                          {kMedianNs, 104 * scale},
                                                          {kP99Ns, tail(250)},
                                                          {kP999Ns, tail(400)}})
                                     : MakeRepeat(round, {{kBytesPerSecond, 2e10 * scale}}));
    }
    return cell;
  }

  World world_;
  std::mt19937_64 random_{20261121};
  std::normal_distribution<double> normal_;
  std::uniform_real_distribution<double> uniform_;
};

TEST(Verdicts, HoldWhatTheyPromise) {
  const World worlds[] = {
      // name, surveys, repeats, spread, between, outliers, change, false, found, comparisons
      {"steady, no change", 1, 7, 0.006, 0, 0.004, 0, 0.05, 0, 0, 200},
      {"spread far beyond the margin", 1, 7, 0.05, 0, 0, 0, 0.05, 0, 0, 300},
      {"too few for exact, Student's t", 1, 5, 0.05, 0, 0.004, 0, 0.05, 0, 0, 300},
      {"5 %", 1, 7, 0.003, 0, 0.004, 0.05, 0.05, 0.95, 1, 200},
      {"5 %, less steady", 1, 7, 0.008, 0, 0.004, 0.05, 0.05, 0.95, 1, 200},
      {"0.3 %", 1, 7, 0.006, 0, 0.004, 0.003, 0.05, 0, 0.01, 200},
      {"sets", 7, 7, 0.006, 0.01, 0.004, 0, 0.05, 0, 0, 40},
      {"sets, 5 %", 7, 7, 0.006, 0.01, 0.004, 0.05, 0.05, 0.9, 1, 40},
      {"small sets, 10 %", 4, 7, 0.006, 0.01, 0.004, 0.1, 0.05, 0.9, 1, 40},
  };
  const char* asked = std::getenv("VELMO_COMPARISONS");
  for (const World& world : worlds) {
    const int comparisons = asked == nullptr ? world.comparisons : std::atoi(asked);
    Maker maker(world);
    int wrong = 0;
    int found = 0;
    for (int i = 0; i < comparisons; ++i) {
      const Side old_side = maker.MakeSide(0);
      const Side new_side = maker.MakeSide(world.change);
      bool cells[kCells] = {};
      for (const Finding& finding : compare(old_side, new_side, kDefaultMargin).findings) {
        ASSERT_EQ(finding.reason, "") << world.name;
        const bool told = finding.verdict == Verdict::kWorse || finding.verdict == Verdict::kBetter;
        cells[*finding.cell->memory.node] |= told;
      }
      found += cells[kChanged];
      if (world.change != 0) cells[kChanged] = false;
      wrong += std::find(cells, cells + kCells, true) != cells + kCells;
    }
    if (asked != nullptr) std::printf("%s: %d wrong, %d found\n", world.name, wrong, found);
    EXPECT_LE(wrong, world.most_false * comparisons) << world.name;
    if (world.change == 0) continue;
    EXPECT_GE(found, world.least_found * comparisons) << world.name;
    EXPECT_LE(found, world.most_found * comparisons) << world.name;
  }
}

}  // namespace velmo_test
