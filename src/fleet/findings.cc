#include "fleet/findings.h"

#include <algorithm>
#include <cmath>
#include <map>

#include "app/table.h"
#include "fleet/departures.h"

namespace velmo {
namespace {

constexpr struct {
  Property property;
  const char* name;
} kUsual[] = {{kFirmware, "firmware"}, {kMicrocode, "microcode"}, {kKernel, "kernel"}};

std::string sizes_text(const std::vector<double>& bytes) {
  constexpr double kGiB = 1U << 30;
  std::string text;
  for (const double size : bytes) {
    text += (text.empty() ? "" : " + ") + fixed_text(size / kGiB, 0);
  }
  return text + " GiB";
}

std::vector<std::string> usual_texts(const Norm& norm) {
  std::vector<std::string> usual;
  const std::string& modules = norm.Text(kModules);
  if (!modules.empty()) {
    usual.push_back(std::to_string(std::count(modules.begin(), modules.end(), '\n')) +
                    " memory modules");
  }
  for (const auto& [property, name] : kUsual) {
    if (!norm.Text(property).empty()) usual.push_back(name + (' ' + norm.Text(property)));
  }
  return usual;
}

std::vector<uint32_t> hosts_of(const std::vector<SlowFigure>& figures) {
  std::vector<uint32_t> hosts;
  for (const SlowFigure& figure : figures) {
    if (hosts.empty() || hosts.back() != figure.host) hosts.push_back(figure.host);
  }
  return hosts;
}

void add_group(const Fleet& fleet, Group group, double compared, const Rules& rules,
               Findings& findings) {
  GroupFinding finding;
  finding.group = std::move(group);
  const Group& of = finding.group;
  finding.compared = of.hosts.size() + of.reference.size() >= kLeastHosts;
  if (finding.compared) finding.judgement = judge_group(fleet, of, compared, rules);
  finding.text =
      fleet.texts.text(fleet.hosts[of.hosts.front()].equals) + "; " + sizes_text(of.node_bytes);
  const Norm norm(fleet, of, hosts_of(finding.judgement.slow));
  finding.usual = usual_texts(norm);
  for (const SlowFigure& figure : finding.judgement.slow) {
    if (findings.slow.empty() || findings.slow.back().host != figure.host) {
      findings.slow.push_back(
          {figure.host, findings.groups.size(), {}, norm.Departures(fleet.hosts[figure.host])});
    }
    findings.slow.back().figures.push_back(figure);
  }
  finding.judgement.slow.clear();
  findings.groups.push_back(std::move(finding));
}

}  // namespace

Findings find_slow(const Fleet& fleet, FleetFiles files, size_t current, const Rules& rules) {
  Findings findings;
  findings.files = std::move(files);
  findings.hosts = current;
  for (size_t i = 0; i < current; ++i) {
    const Host& host = fleet.hosts[i];
    if (!host.again.empty()) findings.again.push_back({host.name, host.again});
  }
  std::vector<Group> groups = group_hosts(fleet, current);
  const double compared = compared_figures(fleet, groups);
  for (Group& group : groups) add_group(fleet, std::move(group), compared, rules, findings);
  std::stable_sort(
      findings.slow.begin(), findings.slow.end(), [](const SlowHost& a, const SlowHost& b) {
        return std::abs(a.figures.front().change()) > std::abs(b.figures.front().change());
      });
  return findings;
}

std::string value_text(const Fleet& fleet, uint32_t figure, double value) {
  constexpr double kGiga = 1e9;
  return is_bandwidth(fleet.figures.name(figure).figure_class)
             ? fixed_text(value / kGiga, 2) + " GB/s"
             : fixed_text(value, 1) + " ns";
}

std::string change_text(const SlowFigure& figure) {
  constexpr double kPercent = 100;
  return (figure.change() > 0 ? "+" : "") + fixed_text(kPercent * figure.change(), 1) + " %";
}

std::string cause_text(const SlowHost& slow) {
  std::string text;
  for (const std::string& cause : slow.causes) text += (text.empty() ? "" : "; ") + cause;
  return text.empty() ? "nothing else differs" : text;
}

std::string reason_text(const Fleet& fleet, const SlowHost& slow) {
  const SlowFigure& worst = slow.figures.front();
  return fleet.figures.name(worst.figure).label + ' ' + change_text(worst) + ": " +
         cause_text(slow);
}

}  // namespace velmo
