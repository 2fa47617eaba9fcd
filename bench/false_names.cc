// Counts how often velmo fleet names a host where all are equal, by how their figures spread:
//
//     velmo_false_names [reports a line]
//
// There is no least change here (--floor 0), so that only the threshold keeps hosts from being
// named. The last column is how many of one host in fifty, slower by seven standard deviations in
// all figures, are named.

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <random>
#include <utility>

#include "fleet/outliers.h"

namespace velmo {
namespace {

using Random = std::mt19937_64;

// A figure's deviation in standard deviations, or about.
struct Spread {
  const char* name;
  std::function<double(Random&)> draw;
};

const Spread kSpreads[] = {
    {"normal", [](Random& random) { return std::normal_distribution()(random); }},
    {"Student's t, 10", [](Random& random) { return std::student_t_distribution(10.0)(random); }},
    {"Student's t, 5", [](Random& random) { return std::student_t_distribution(5.0)(random); }},
    {"Laplace",
     [](Random& random) {
       const double value = std::exponential_distribution()(random);
       return random() % 2 == 0 ? value : -value;
     }},
    {"gamma, 16 (skewed)",
     [](Random& random) { return std::gamma_distribution(16.0)(random) / 4; }},
    {"gamma, 4 (skewed)", [](Random& random) { return std::gamma_distribution(4.0)(random) / 2; }},
};

struct Shape {
  int hosts;
  int figures;
  double common;  // share of the variance that all figures of a host share
};

struct Counts {
  int reports_with_false_names = 0;
  int named = 0;
};

// Names the slow among `shape.hosts` hosts, of which the first `slow` are.
Judgement judge(const Shape& shape, int slow, const Spread& spread, Random& random) {
  constexpr double kDeviation = 0.01;
  constexpr double kSlow = 7;
  Fleet fleet;
  for (int i = 0; i < shape.figures; ++i) {
    fleet.figures.number({FigureClass::kIdleAverage, std::to_string(i), "", std::to_string(i)});
  }
  Group group;
  for (int i = 0; i < shape.hosts; ++i) {
    Host host;
    const double common = spread.draw(random);
    for (uint32_t figure = 0; figure < fleet.figures.size(); ++figure) {
      const double deviation = std::sqrt(shape.common) * common +
                               std::sqrt(1 - shape.common) * spread.draw(random) +
                               (i < slow ? kSlow : 0);
      host.figures.push_back({figure, static_cast<float>(std::exp(kDeviation * deviation)), 0});
    }
    fleet.hosts.push_back(std::move(host));
    group.hosts.push_back(static_cast<uint32_t>(i));
  }
  return judge_group(fleet, group, compared_figures(fleet, {group}), {.threshold = {}, .floor = 0});
}

int hosts_named(const Judgement& judgement, uint32_t below) {
  int named = 0;
  uint32_t last = UINT32_MAX;
  for (const SlowFigure& slow : judgement.slow) {
    if (slow.host < below && slow.host != std::exchange(last, slow.host)) ++named;
  }
  return named;
}

void count(const Shape& shape, const Spread& spread, int reports, Random& random) {
  const int planted = std::max(1, shape.hosts / 50);
  Counts counts;
  for (int i = 0; i < reports; ++i) {
    if (!judge(shape, 0, spread, random).slow.empty()) ++counts.reports_with_false_names;
    counts.named += hosts_named(judge(shape, planted, spread, random), planted);
  }
  constexpr double kPercent = 100;
  std::printf("%-20s %5d %7d %6.1f %8.1f %% %8.1f %%\n", spread.name, shape.hosts, shape.figures,
              shape.common, kPercent * counts.reports_with_false_names / reports,
              kPercent * counts.named / (reports * planted));
}

}  // namespace
}  // namespace velmo

int main(int argc, char** argv) {
  const int reports = argc > 1 ? std::atoi(argv[1]) : 200;
  velmo::Random random(1);
  std::printf("%-20s %5s %7s %6s %10s %10s\n", "Spread", "Hosts", "Figures", "Common", "False",
              "Named");
  for (const velmo::Spread& spread : velmo::kSpreads) {
    for (const int hosts : {8, 16, 64, 333, 1000}) {
      for (const velmo::Shape& shape :
           {velmo::Shape{hosts, 1, 0}, {hosts, 12, 0}, {hosts, 12, 0.8}, {hosts, 64, 0.5}}) {
        velmo::count(shape, spread, reports, random);
      }
    }
  }
}
