#include "fleet/outliers.h"

#include <algorithm>
#include <cmath>
#include <limits>

#include "fleet/threshold.h"

namespace velmo {
namespace {

// The median absolute deviation of normal figures, in standard deviations, is 1 over this.
constexpr double kMadScale = 1.4826;

// No group is more alike than this: surveys round.
constexpr double kLeastSpread = 1e-4;

// One figure of all hosts that have it, as logarithms, in which slow and fast are alike.
struct Column {
  double median = 0;
  double spread = 0;
  size_t values = 0;  // 0: of fewer than kLeastHosts, which are not compared
};

double median(std::vector<double>& values) {
  const auto middle = values.begin() + static_cast<ptrdiff_t>(values.size() / 2);
  std::nth_element(values.begin(), middle, values.end());
  if (values.size() % 2 == 1) return *middle;
  return (*std::max_element(values.begin(), middle) + *middle) / 2;
}

Column column_of(std::vector<double>& values, std::vector<double>& uncertainties) {
  Column column{.median = median(values), .values = values.size()};
  for (double& value : values) value = std::abs(value - column.median);
  column.spread = std::max({kMadScale * median(values), median(uncertainties), kLeastSpread});
  return column;
}

class Comparison {
 public:
  Comparison(const Fleet& fleet, const Group& group) : fleet_(fleet), group_(group) {
    members_ = group.hosts;
    members_.insert(members_.end(), group.reference.begin(), group.reference.end());
    ReadColumns();
    JoinSpreads();
  }

  // Positive on the bad side; none where too few hosts have the figure.
  std::optional<double> Score(const Figure& figure) const {
    const Column& column = columns_[figure.name];
    if (column.values == 0) return std::nullopt;
    const double spread = std::max(column.spread, static_cast<double>(figure.uncertainty));
    const double score = (std::log(static_cast<double>(figure.value)) - column.median) / spread;
    return is_bandwidth(ClassOf(figure.name)) ? -score : score;
  }

  double Median(uint32_t name) const { return std::exp(columns_[name].median); }
  FigureClass ClassOf(uint32_t name) const { return fleet_.figures.name(name).figure_class; }
  const std::vector<uint32_t>& Members() const { return members_; }

  double ColumnsOf(FigureClass figure_class) const {
    double columns = 0;
    for (uint32_t name = 0; name < columns_.size(); ++name) {
      if (columns_[name].values > 0 && ClassOf(name) == figure_class) ++columns;
    }
    return columns;
  }

 private:
  // Figures stand by rising name in each host, so that one place a host suffices to walk through
  // all of them column by column.
  void ReadColumns() {
    columns_.resize(fleet_.figures.size());
    std::vector<size_t> places(members_.size());
    std::vector<double> values;
    std::vector<double> uncertainties;
    for (uint32_t name = 0; name < columns_.size(); ++name) {
      values.clear();
      uncertainties.clear();
      for (size_t i = 0; i < members_.size(); ++i) {
        const std::vector<Figure>& figures = fleet_.hosts[members_[i]].figures;
        while (places[i] < figures.size() && figures[places[i]].name < name) ++places[i];
        if (places[i] == figures.size() || figures[places[i]].name != name) continue;
        values.push_back(std::log(static_cast<double>(figures[places[i]].value)));
        uncertainties.push_back(figures[places[i]].uncertainty);
      }
      if (values.size() >= kLeastHosts) columns_[name] = column_of(values, uncertainties);
    }
  }

  // The spread of a few hosts may be small by chance in one of many columns: none is smaller than
  // the middle one of its class.
  void JoinSpreads() {
    std::array<std::vector<double>, kFigureClasses> spreads;
    const auto of_class = [&](uint32_t name) -> std::vector<double>& {
      return spreads[static_cast<size_t>(ClassOf(name))];
    };
    for (uint32_t name = 0; name < columns_.size(); ++name) {
      if (columns_[name].values > 0) of_class(name).push_back(columns_[name].spread);
    }
    std::array<double, kFigureClasses> middle{};
    for (size_t i = 0; i < spreads.size(); ++i) {
      if (!spreads[i].empty()) middle[i] = median(spreads[i]);
    }
    for (uint32_t name = 0; name < columns_.size(); ++name) {
      double& spread = columns_[name].spread;
      spread = std::max(spread, middle[static_cast<size_t>(ClassOf(name))]);
    }
  }

  const Fleet& fleet_;
  const Group& group_;
  std::vector<uint32_t> members_;
  std::vector<Column> columns_;  // by name of figure
};

// The largest deviations of each member on both sides, over the figures of `figure_class`.
Sides sides_of(const Fleet& fleet, const Comparison& comparison, FigureClass figure_class) {
  Sides sides;
  for (const uint32_t host : comparison.Members()) {
    double good = -std::numeric_limits<double>::infinity();
    double bad = good;
    for (const Figure& figure : fleet.hosts[host].figures) {
      if (comparison.ClassOf(figure.name) != figure_class) continue;
      const std::optional<double> score = comparison.Score(figure);
      if (!score) continue;
      bad = std::max(bad, *score);
      good = std::max(good, -*score);
    }
    if (std::isfinite(bad)) {
      sides.good.push_back(good);
      sides.bad.push_back(bad);
    }
  }
  return sides;
}

}  // namespace

double compared_figures(const Fleet& fleet, const std::vector<Group>& groups) {
  size_t figures = 0;
  for (const Group& group : groups) {
    if (group.hosts.size() + group.reference.size() < kLeastHosts) continue;
    for (const uint32_t host : group.hosts) figures += fleet.hosts[host].figures.size();
  }
  return static_cast<double>(figures);
}

Judgement judge_group(const Fleet& fleet, const Group& group, double compared, const Rules& rules) {
  const Comparison comparison(fleet, group);
  Judgement judgement;
  for (int i = 0; i < kFigureClasses; ++i) {
    const auto figure_class = static_cast<FigureClass>(i);
    const double columns = comparison.ColumnsOf(figure_class);
    if (columns == 0) continue;
    judgement.thresholds[static_cast<size_t>(i)] = rules.threshold.value_or(
        threshold(sides_of(fleet, comparison, figure_class), columns, compared, kLeastScore));
  }
  for (const uint32_t host : group.hosts) {
    const auto first = static_cast<ptrdiff_t>(judgement.slow.size());
    for (const Figure& figure : fleet.hosts[host].figures) {
      const std::optional<double> score = comparison.Score(figure);
      const double limit =
          judgement.thresholds[static_cast<size_t>(comparison.ClassOf(figure.name))];
      if (!score || *score <= limit) continue;
      const SlowFigure slow{host,   figure.name, figure.value, comparison.Median(figure.name),
                            *score, limit};
      if (std::abs(slow.change()) > rules.floor) judgement.slow.push_back(slow);
    }
    std::stable_sort(judgement.slow.begin() + first, judgement.slow.end(),
                     [](const SlowFigure& a, const SlowFigure& b) {
                       return a.score / a.threshold > b.score / b.threshold;
                     });
  }
  return judgement;
}

}  // namespace velmo
