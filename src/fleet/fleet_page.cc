#include "fleet/fleet_page.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <map>
#include <optional>
#include <stdexcept>
#include <utility>

#include "fleet/fleet_report.h"
#include "report/page.h"
#include "survey/loaded_curve.h"
#include "survey/record_json.h"

namespace velmo {
namespace {

// What a page holds at most, however many hosts there are.
constexpr size_t kStrips = 16;        // figures a group
constexpr size_t kStripValues = 300;  // of a figure
constexpr size_t kSlowNamed = 40;     // of a figure
constexpr size_t kCurves = 6;         // cells of a group
constexpr size_t kSlowCurves = 8;     // hosts of a cell
constexpr size_t kBandHosts = 60;     // of a group

constexpr int kBandSteps = 24;  // bandwidths at which the band of a group is drawn
constexpr double kPercent = 100;

// The slow hosts of a group, and which of its figures they are slow in.
struct SlowInGroup {
  std::vector<const SlowHost*> hosts;
  std::map<uint32_t, std::vector<const SlowFigure*>> by_figure;
  std::map<uint32_t, size_t> named;  // hosts of which the figure is the clearest
};

SlowInGroup slow_in(const Findings& findings, size_t group) {
  SlowInGroup slow;
  for (const SlowHost& host : findings.slow) {
    if (host.group != group) continue;
    slow.hosts.push_back(&host);
    ++slow.named[host.figures.front().figure];
    for (const SlowFigure& figure : host.figures) slow.by_figure[figure.figure].push_back(&figure);
  }
  return slow;
}

// Those that name a host, then those that most hosts are slow in, then one of each class.
std::vector<uint32_t> strip_figures(const Fleet& fleet, const Group& group,
                                    const SlowInGroup& slow) {
  std::vector<uint32_t> figures;
  for (const auto& [figure, hosts] : slow.by_figure) figures.push_back(figure);
  const auto weight = [&slow](uint32_t figure) {
    const auto named = slow.named.find(figure);
    return std::pair(named == slow.named.end() ? 0 : named->second,
                     slow.by_figure.at(figure).size());
  };
  std::stable_sort(figures.begin(), figures.end(),
                   [&](uint32_t a, uint32_t b) { return weight(a) > weight(b); });
  if (figures.size() > kStrips) figures.resize(kStrips);
  std::array<bool, kFigureClasses> shown{};
  const auto class_of = [&fleet](uint32_t figure) {
    return static_cast<size_t>(fleet.figures.name(figure).figure_class);
  };
  for (const uint32_t figure : figures) shown[class_of(figure)] = true;
  for (const Figure& figure : fleet.hosts[group.hosts.front()].figures) {
    if (std::exchange(shown[class_of(figure.name)], true)) continue;
    if (figures.size() < kStrips) figures.push_back(figure.name);
  }
  return figures;
}

// A figure of all hosts of a group, as changes from their median.
Json strip_json(const Fleet& fleet, const Group& group, uint32_t name, const SlowInGroup& slow) {
  static const std::vector<const SlowFigure*> kNone;
  const auto found_slow = slow.by_figure.find(name);
  const auto& slow_here = found_slow == slow.by_figure.end() ? kNone : found_slow->second;
  std::vector<double> values;
  for (const uint32_t host : group.hosts) {
    const std::vector<Figure>& figures = fleet.hosts[host].figures;
    const auto found = std::lower_bound(figures.begin(), figures.end(), name,
                                        [](const Figure& a, uint32_t b) { return a.name < b; });
    const bool is_slow = std::ranges::any_of(
        slow_here, [host](const SlowFigure* figure) { return figure->host == host; });
    if (!is_slow && found != figures.end() && found->name == name) values.push_back(found->value);
  }
  if (values.empty()) return nullptr;
  std::sort(values.begin(), values.end());
  const double median = slow_here.empty() ? values[values.size() / 2] : slow_here[0]->median;
  Json strip = {{"label", fleet.figures.name(name).label},
                {"median", value_text(fleet, name, median)},
                {"changes", Json::array()},
                {"slow", Json::array()}};
  const size_t count = std::min(values.size(), kStripValues);
  for (size_t i = 0; i < count; ++i) {
    const size_t at = count > 1 ? i * (values.size() - 1) / (count - 1) : 0;
    strip["changes"].push_back(kPercent * (values[at] / median - 1));
  }
  for (const SlowFigure* figure : slow_here) {
    if (strip["slow"].size() == kSlowNamed) break;
    strip["slow"].push_back({{"host", fleet.hosts[figure->host].name},
                             {"change", kPercent * figure->change()},
                             {"value", value_text(fleet, name, figure->value)}});
  }
  return strip;
}

using Curves = std::map<std::string, std::vector<CurvePoint>>;  // by key of the cell

// The loaded curves of a host; none where its file has gone meanwhile.
Curves read_curves(const Host& host) {
  Curves curves;
  try {
    const Survey survey = read_survey(host.path);
    for (const Cell& cell : survey.cells) {
      std::vector<CurvePoint> curve = curve_of(cell, kAverageNs);
      if (!curve.empty()) curves[cell_key(cell)] = std::move(curve);
    }
  } catch (const std::runtime_error&) {
    return {};
  }
  return curves;
}

constexpr double kGiga = 1e9;

Json curve_json(const std::vector<CurvePoint>& points) {
  Json json = Json::array();
  for (const CurvePoint& point : points) {
    json.push_back({point.bandwidth.value / kGiga, point.latency.value});
  }
  return json;
}

// Between which latencies nine of ten hosts lie, at bandwidths that half of the hosts reach.
Json band_json(const std::vector<Curves>& hosts, const std::string& cell) {
  std::vector<double> least;
  std::vector<double> most;
  for (const Curves& host : hosts) {
    const auto found = host.find(cell);
    if (found == host.end()) continue;
    least.push_back(found->second.back().bandwidth.value);
    most.push_back(peak_of(found->second)->bandwidth.value);
  }
  Json band = Json::array();
  if (least.empty()) return band;
  std::sort(least.begin(), least.end());
  std::sort(most.begin(), most.end());
  const double from = least[least.size() / 2];
  const double to = most[most.size() / 2];
  for (int step = 0; step <= kBandSteps; ++step) {
    const double bandwidth = from + (to - from) * step / kBandSteps;
    std::vector<double> latencies;
    for (const Curves& host : hosts) {
      const auto found = host.find(cell);
      if (found == host.end()) continue;
      if (const auto at = latency_at(found->second, bandwidth)) latencies.push_back(at->value);
    }
    if (latencies.size() * 2 < least.size()) continue;
    std::sort(latencies.begin(), latencies.end());
    const auto rank = [&latencies](double share) {
      return latencies[static_cast<size_t>(share * static_cast<double>(latencies.size() - 1))];
    };
    constexpr double kTwentieth = 0.05;
    band.push_back({bandwidth / kGiga, rank(kTwentieth), rank(0.5), rank(1 - kTwentieth)});
  }
  return band;
}

// Cells of loaded latency in which hosts are slow, those of most hosts first; of a group in which
// none is, the first cells.
std::vector<const FigureName*> curve_cells(const Fleet& fleet, const Group& group,
                                           const SlowInGroup& slow) {
  std::map<std::string, std::pair<size_t, const FigureName*>> cells;
  for (const Figure& figure : fleet.hosts[group.hosts.front()].figures) {
    const FigureName& name = fleet.figures.name(figure.name);
    if (name.figure_class < FigureClass::kLoadedHalf) continue;
    auto& [hosts, any] = cells[name.cell];
    any = &name;
    const auto found = slow.by_figure.find(figure.name);
    if (found != slow.by_figure.end()) hosts += found->second.size();
  }
  std::vector<std::pair<size_t, const FigureName*>> ordered;
  for (const auto& [cell, entry] : cells) ordered.push_back(entry);
  std::stable_sort(ordered.begin(), ordered.end(),
                   [](const auto& a, const auto& b) { return a.first > b.first; });
  std::vector<const FigureName*> names;
  for (size_t i = 0; i < std::min(ordered.size(), kCurves); ++i) names.push_back(ordered[i].second);
  return names;
}

Json curves_json(const Fleet& fleet, const Group& group, const SlowInGroup& slow) {
  const std::vector<const FigureName*> cells = curve_cells(fleet, group, slow);
  if (cells.empty() || slow.hosts.empty()) return Json::array();
  std::map<const SlowHost*, Curves> of_slow;
  for (const SlowHost* host : slow.hosts) {
    if (of_slow.size() < kSlowCurves * cells.size()) {
      of_slow[host] = read_curves(fleet.hosts[host->host]);
    }
  }
  std::vector<Curves> sound;
  const size_t step = std::max<size_t>(1, group.hosts.size() / kBandHosts);
  for (size_t i = 0; i < group.hosts.size(); i += step) {
    const bool is_slow = std::ranges::any_of(
        slow.hosts, [&](const SlowHost* host) { return host->host == group.hosts[i]; });
    if (!is_slow) sound.push_back(read_curves(fleet.hosts[group.hosts[i]]));
  }
  Json json = Json::array();
  for (const FigureName* name : cells) {
    const auto slow_here = [&](const SlowHost* host) {
      return std::ranges::any_of(host->figures, [&](const SlowFigure& figure) {
        return fleet.figures.name(figure.figure).cell == name->cell;
      });
    };
    Json hosts = Json::array();
    for (const SlowHost* host : slow.hosts) {
      if (hosts.size() == kSlowCurves || !slow_here(host)) continue;
      const auto curve = of_slow[host].find(name->cell);
      if (curve == of_slow[host].end()) continue;
      hosts.push_back(
          {{"host", fleet.hosts[host->host].name}, {"points", curve_json(curve->second)}});
    }
    if (hosts.empty()) continue;
    json.push_back(
        {{"cell", name->cell}, {"band", band_json(sound, name->cell)}, {"hosts", hosts}});
  }
  return json;
}

}  // namespace

std::string fleet_page(const Fleet& fleet, const Findings& findings) {
  Json data = findings_json(fleet, findings);
  for (size_t i = 0; i < findings.slow.size(); ++i) {
    const SlowHost& slow = findings.slow[i];
    const SlowFigure& worst = slow.figures.front();
    // The page shows the clearest figure of each host; the rest is in --json.
    data["outliers"][i]["figures"] = slow.figures.size();
    data["outliers"][i]["label"] = fleet.figures.name(worst.figure).label;
    data["outliers"][i]["value"] = value_text(fleet, worst.figure, worst.value);
    data["outliers"][i]["median"] = value_text(fleet, worst.figure, worst.median);
    data["outliers"][i]["change"] = change_text(worst);
  }
  for (size_t i = 0; i < findings.groups.size(); ++i) {
    const Group& group = findings.groups[i].group;
    const SlowInGroup slow = slow_in(findings, i);
    data["groups"][i]["strips"] = Json::array();
    data["groups"][i]["curves"] = Json::array();
    if (!findings.groups[i].compared) continue;
    for (const uint32_t figure : strip_figures(fleet, group, slow)) {
      const Json strip = strip_json(fleet, group, figure, slow);
      if (!strip.is_null()) data["groups"][i]["strips"].push_back(strip);
    }
    data["groups"][i]["curves"] = curves_json(fleet, group, slow);
  }
  return page_text({.title = "velmo: a fleet of " + std::to_string(findings.hosts) + " hosts",
                    .scripts = {"fleet_page.js"},
                    .data = {std::move(data)}});
}

}  // namespace velmo
