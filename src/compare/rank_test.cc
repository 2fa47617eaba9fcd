#include "compare/rank_test.h"

#include <algorithm>
#include <map>
#include <numeric>
#include <utility>

namespace velmo {
namespace {

// Orders of i and j values with U = u, for i = n and j = m: the largest value is one of the i,
// above all j others, or one of the j. Doubles hold them exactly up to 2^53, and to 15 digits
// beyond.
std::vector<double> count_orders(size_t n, size_t m) {
  std::vector<std::vector<double>> orders(m + 1, {1});
  for (size_t i = 1; i <= n; ++i) {
    for (size_t j = 1; j <= m; ++j) {
      std::vector<double> sum(i * j + 1);
      for (size_t u = 0; u < orders[j].size(); ++u) sum[u + j] = orders[j][u];
      for (size_t u = 0; u < orders[j - 1].size(); ++u) sum[u] += orders[j - 1][u];
      orders[j] = std::move(sum);
    }
  }
  return orders[m];
}

}  // namespace

const std::vector<double>& rank_distribution(size_t n, size_t m) {
  static std::map<std::pair<size_t, size_t>, std::vector<double>> known;
  std::vector<double>& cumulated = known[std::minmax(n, m)];
  if (cumulated.empty()) {
    cumulated = count_orders(n, m);
    std::partial_sum(cumulated.begin(), cumulated.end(), cumulated.begin());
    const double all = cumulated.back();
    for (double& value : cumulated) value /= all;
  }
  return cumulated;
}

double smallest_rank_p(size_t n, size_t m) {
  double p = 2;
  for (size_t i = 1; i <= n; ++i) p *= static_cast<double>(i) / static_cast<double>(m + i);
  return std::min(p, 1.0);
}

std::vector<double> holm_levels(const std::vector<Hypothesis>& family, double alpha) {
  std::vector<size_t> order(family.size());
  std::iota(order.begin(), order.end(), size_t{0});
  const auto weighted_p = [&](size_t i) { return family[i].p / family[i].weight; };
  std::sort(order.begin(), order.end(),
            [&](size_t a, size_t b) { return weighted_p(a) < weighted_p(b); });
  // The weight of those not yet rejected; summed up from the last on, so that it ends exactly.
  std::vector<double> left(family.size());
  double sum = 0;
  for (size_t k = order.size(); k-- > 0;) left[k] = sum += family[order[k]].weight;

  size_t step = 0;
  while (step + 1 < order.size() && weighted_p(order[step]) <= alpha / left[step]) ++step;
  std::vector<double> levels;
  levels.reserve(family.size());
  for (const Hypothesis& hypothesis : family) {
    levels.push_back(std::min(alpha, alpha * hypothesis.weight / left[step]));
  }
  return levels;
}

}  // namespace velmo
