#include "fleet/fleet_report.h"

#include <algorithm>

#include "app/table.h"
#include "app/text.h"

namespace velmo {
namespace {

// Columns two blanks apart, all but the last as wide as their widest cell; a line may be longer
// than a terminal, as it stays one line for grep and for sort.
void write_lines(std::ostream& out, const std::vector<std::vector<std::string>>& rows) {
  std::vector<size_t> widths;
  for (const auto& row : rows) {
    widths.resize(std::max(widths.size(), row.size()));
    for (size_t i = 0; i < row.size(); ++i) widths[i] = std::max(widths[i], row[i].size());
  }
  for (const auto& row : rows) {
    std::string line;
    for (size_t i = 0; i + 1 < row.size(); ++i) {
      line += row[i] + std::string(widths[i] - row[i].size() + 2, ' ');
    }
    out << line << row.back() << '\n';
  }
}

void write_named(std::ostream& out, const std::string& title, const std::vector<Named>& list) {
  if (list.empty()) return;
  out << '\n' << title << '\n';
  std::vector<std::vector<std::string>> rows;
  for (const Named& named : list) rows.push_back({printable(named.name), printable(named.why)});
  write_lines(out, rows);
}

void write_slow(std::ostream& out, const Fleet& fleet, const Findings& findings) {
  if (findings.slow.empty()) return;
  out << "\nHosts to look at, worst first\n";
  std::vector<std::vector<std::string>> rows = {
      {"Host", "Figure", "Value", "Median", "Change", "Slow figures", "Likely cause"}};
  for (const SlowHost& slow : findings.slow) {
    const SlowFigure& worst = slow.figures.front();
    rows.push_back({printable(fleet.hosts[slow.host].name),
                    printable(fleet.figures.name(worst.figure).label),
                    value_text(fleet, worst.figure, worst.value),
                    value_text(fleet, worst.figure, worst.median), change_text(worst),
                    std::to_string(slow.figures.size()), printable(cause_text(slow))});
  }
  write_lines(out, rows);
}

// "5.0 to 6.3", over the classes of figures that were compared.
std::string thresholds_text(const Judgement& judgement) {
  double least = 0;
  double most = 0;
  for (const double threshold : judgement.thresholds) {
    if (threshold <= 0) continue;
    least = least > 0 ? std::min(least, threshold) : threshold;
    most = std::max(most, threshold);
  }
  return fixed_text(least, 1) + (most > least ? " to " + fixed_text(most, 1) : "");
}

std::string hosts_text(size_t hosts) {
  return std::to_string(hosts) + (hosts == 1 ? " host" : " hosts");
}

void write_groups(std::ostream& out, const Findings& findings) {
  if (findings.groups.empty()) return;
  out << "\nGroups\n";
  int number = 0;
  for (const GroupFinding& finding : findings.groups) {
    const Group& group = finding.group;
    out << ++number << ": " << hosts_text(group.hosts.size());
    if (!group.reference.empty()) out << " and " << group.reference.size() << " of the history";
    if (!finding.compared) {
      out << ", too few to compare (" << kLeastHosts << " are needed; --history adds surveys)";
    } else {
      out << ", slow beyond " << thresholds_text(finding.judgement) << " robust deviations";
    }
    out << "\n   " << printable(finding.text) << '\n';
    std::string usual;
    for (const std::string& text : finding.usual) usual += (usual.empty() ? "" : ", ") + text;
    if (!usual.empty()) out << "   " << printable(usual) << '\n';
  }
}

Json named_json(const std::vector<Named>& list, const char* name) {
  Json json = Json::array();
  for (const Named& named : list) json.push_back({{name, named.name}, {"reason", named.why}});
  return json;
}

Json figure_json(const Fleet& fleet, const SlowFigure& slow) {
  const FigureName& name = fleet.figures.name(slow.figure);
  return {{"cell", name.cell},
          {"figure", figure_id(name.figure_class)},
          {"label", name.label},
          {"value", slow.value},
          {"median", slow.median},
          {"change_percent", 100 * slow.change()},
          {"robust_deviations", slow.score},
          {"threshold", slow.threshold}};
}

Json group_json(const GroupFinding& finding) {
  Json json = {{"hosts", finding.group.hosts.size()},
               {"history", finding.group.reference.size()},
               {"compared", finding.compared},
               {"equal", finding.text},
               {"usual", finding.usual},
               {"thresholds", Json::object()}};
  for (size_t i = 0; i < kFigureClasses; ++i) {
    const double threshold = finding.judgement.thresholds[i];
    if (threshold > 0) json["thresholds"][figure_id(static_cast<FigureClass>(i))] = threshold;
  }
  return json;
}

}  // namespace

void write_findings(std::ostream& out, const Fleet& fleet, const Findings& findings) {
  out << hosts_text(findings.hosts) << " in " << findings.files.files
      << " files: " << findings.slow.size() << " to look at, " << findings.again.size()
      << " to survey again, " << findings.files.missing.size() << " missing\n";
  write_slow(out, fleet, findings);
  write_named(out, "Survey again", findings.again);
  write_named(out, "Missing", findings.files.missing);
  write_named(out, "Files left out", findings.files.left_out);
  write_groups(out, findings);
}

Json findings_json(const Fleet& fleet, const Findings& findings) {
  Json json = {{"format", "velmo-fleet"},
               {"format_version", "1.0"},
               {"files", findings.files.files},
               {"hosts", findings.hosts},
               {"outliers", Json::array()},
               {"again", named_json(findings.again, "host")},
               {"missing", named_json(findings.files.missing, "host")},
               {"left_out", named_json(findings.files.left_out, "file")},
               {"groups", Json::array()}};
  for (const SlowHost& slow : findings.slow) {
    Json figures = Json::array();
    for (const SlowFigure& figure : slow.figures) figures.push_back(figure_json(fleet, figure));
    json["outliers"].push_back({{"host", fleet.hosts[slow.host].name},
                                {"file", fleet.hosts[slow.host].path},
                                {"group", slow.group + 1},
                                {"causes", slow.causes},
                                {"reason", reason_text(fleet, slow)},
                                {"figures", std::move(figures)}});
  }
  for (const GroupFinding& finding : findings.groups) {
    json["groups"].push_back(group_json(finding));
  }
  return json;
}

std::string exclude_list(const Fleet& fleet, const Findings& findings,
                         std::vector<std::string>& refused) {
  std::string list;
  for (const SlowHost& slow : findings.slow) {
    const std::string& name = fleet.hosts[slow.host].name;
    const bool is_name = std::all_of(name.begin(), name.end(), [](unsigned char c) {
      return std::isalnum(c) != 0 || c == '-' || c == '.' || c == '_';
    });
    if (is_name) {
      list += (list.empty() ? "" : ",") + name;
    } else {
      refused.push_back(printable(name));
    }
  }
  return list.empty() ? "" : list + '\n';
}

}  // namespace velmo
