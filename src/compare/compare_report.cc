#include "compare/compare_report.h"

#include <algorithm>
#include <cmath>
#include <map>
#include <set>
#include <sstream>
#include <tuple>

#include "app/table.h"

namespace velmo {
namespace {

using Rows = std::vector<std::vector<std::string>>;

constexpr double kGiga = 1e9;

// Writes `text` in lines of at most kTableWidth characters, the later ones indented; what has no
// blank to break at is cut into lines.
void write_wrapped(std::ostream& out, std::string text) {
  constexpr char kIndent[] = "    ";
  while (text.size() > kTableWidth) {
    size_t end = text.rfind(' ', kTableWidth);
    if (end == std::string::npos || text.find_first_not_of(' ') > end) end = kTableWidth;
    out << text.substr(0, end) << '\n';
    text = kIndent + text.substr(text[end] == ' ' ? end + 1 : end);
  }
  out << text << '\n';
}

// A change in percent without its sign, shortened where it says no more than that anything may be.
std::string size_of_change(double percent) {
  constexpr double kLargest = 999;
  const double size = std::abs(percent);
  return size <= kLargest ? fixed_text(size, size < 9.995 ? 2 : 1) : ">999";
}

std::string percent_text(double percent) {
  return (percent < 0 ? "-" : "+") + size_of_change(percent);
}

std::string figure_text(double value, const std::string& figure) {
  if (figure != kBytesPerSecond) return fixed_text(value, value < 10 ? 2 : (value < 1e4 ? 1 : 0));
  return fixed_text(value / kGiga, value < 1000 * kGiga ? 2 : 1);
}

std::string size_text(const std::string& bytes) {
  const double size = std::strtod(bytes.c_str(), nullptr);
  for (const auto& [unit, name] : {std::pair(1 << 30, " GiB"), {1 << 20, " MiB"}}) {
    if (size >= unit) return fixed_text(size / unit, std::fmod(size, unit) == 0 ? 0 : 1) + name;
  }
  return fixed_text(size / (1 << 10), 0) + " KiB";
}

// "bandwidth 0 > 1 2:1n": from CPU node 0 to memory node 1.
std::string cell_text(const Cell& cell) {
  static const std::map<std::string, std::string> kNames = {
      {"idle_latency/node", "idle"},        {"idle_latency/large_pages", "large pages"},
      {"latency_by_size/node", "size"},     {"bandwidth/node", "bandwidth"},
      {"bandwidth/one_thread", "1 thread"}, {"bandwidth/machine", "machine"},
      {"loaded_latency/node", "loaded"},
  };
  const auto name = kNames.find(cell.kind + '/' + parameter_text(cell, "scope"));
  std::string text = name == kNames.end() ? cell.kind : name->second;
  if (cell.kind == kLatencyBySize) text += ' ' + size_text(parameter_text(cell, "buffer_bytes"));
  if (cell.from.cpu_node) text += ' ' + std::to_string(*cell.from.cpu_node);
  text += " > ";
  if (cell.memory.node) {
    text += std::to_string(*cell.memory.node);
  } else {
    const std::string memory = memory_text(cell.memory);
    text += memory.starts_with("/dev/") ? memory.substr(5) : memory;
  }
  if (const std::string mix = parameter_text(cell, "mix"); !mix.empty()) text += ' ' + mix;
  return text;
}

std::string label_of(const Finding& finding) {
  static const std::map<std::string, std::string> kFigures = {
      {kAverageNs, "average"}, {kMedianNs, "median"}, {kP99Ns, "99th"}, {kP999Ns, "99.9th"}};
  std::string text = (finding.marks.empty() ? "" : "* ") + cell_text(*finding.cell);
  if (finding.load) text += " at " + fixed_text(100 * *finding.load, 0) + " %";
  if (const auto name = kFigures.find(finding.figure); name != kFigures.end()) {
    text += ", " + name->second;
  } else if (finding.cell->kind == kLoadedLatency) {
    text += ", peak";
  }
  return text;
}

std::vector<std::string> row_of(const Finding& finding) {
  const auto median_text = [&](const std::vector<double>& values) {
    return values.empty() ? "-" : figure_text(median(values), finding.figure);
  };
  std::vector<std::string> row = {label_of(finding), median_text(finding.old_values),
                                  median_text(finding.new_values)};
  if (!finding.reason.empty()) return row;
  row.push_back(percent_text(percent_of(finding.change.estimate)));
  row.push_back(percent_text(percent_of(finding.change.low)) + ".." +
                percent_text(percent_of(finding.change.high)));
  if (finding.verdict == Verdict::kUnclear) {
    row.push_back(size_of_change(percent_of(finding.visible_change())));
  }
  return row;
}

void write_side(std::ostream& out, const char* name, const Side& side) {
  if (side.surveys.size() > 1) {
    write_wrapped(out, name + side.path + ": " + std::to_string(side.surveys.size()) + " surveys");
  }
  for (const Survey& survey : side.surveys) {
    if (side.surveys.size() > 1 && survey.state == kComplete) continue;
    const std::string lacking = survey.state == kComplete ? "" : ", cells may be missing";
    write_wrapped(out, (side.surveys.size() > 1 ? "     " : name + side.path + ": ") + survey.host +
                           ", " + survey.started + ", " + survey.state + lacking);
  }
}

void write_differences(std::ostream& out, const Comparison& comparison) {
  if (comparison.differences.empty()) {
    out << "\nMachine and settings do not differ.\n";
  } else {
    out << "\nUnlike in settings or machine:\n";
  }
  for (const Difference& difference : comparison.differences) {
    std::string text = "  " + difference.what;
    if (!difference.kind.empty()) {
      text += " of " + difference.kind + " (" + std::to_string(difference.cells) +
              (difference.cells == 1 ? " cell)" : " cells)");
    }
    write_wrapped(out, text + ": " + difference.old_text + " -> " + difference.new_text);
  }
  for (const auto& [keys, name] : {std::pair(&comparison.only_old, "Only in old, not compared"),
                                   {&comparison.only_new, "Only in new, not compared"}}) {
    if (keys->empty()) continue;
    out << '\n' << name << ":\n";
    for (const std::string& key : *keys) write_wrapped(out, "  " + key);
  }
}

// The findings that have a verdict, one table for each verdict.
void write_verdicts(std::ostream& out, const Comparison& comparison) {
  for (const Verdict verdict :
       {Verdict::kWorse, Verdict::kBetter, Verdict::kUnclear, Verdict::kSame}) {
    std::string title = verdict_text(verdict);
    title += " (" + std::to_string(comparison.count(verdict)) + ")";
    Rows rows = {{title, "Old", "New", "Change", "Interval"}};
    if (verdict == Verdict::kUnclear) rows.front().emplace_back("Seen");
    for (const Finding& finding : comparison.findings) {
      if (finding.reason.empty() && finding.verdict == verdict) rows.push_back(row_of(finding));
    }
    if (rows.size() == 1) continue;
    out << '\n';
    write_table(out, rows);
  }
}

// Percentiles only where not all of a cell has the same reason.
void write_without_verdict(std::ostream& out, const Comparison& comparison) {
  std::map<std::string, Rows> by_reason;
  std::set<std::tuple<std::string, const Cell*, std::optional<double>>> said;
  for (const bool headlines : {true, false}) {
    for (const Finding& finding : comparison.findings) {
      if (finding.reason.empty() || is_headline(finding.figure) != headlines) continue;
      const std::tuple what(finding.reason, finding.cell, finding.load);
      if (headlines) said.insert(what);
      if (!headlines && said.contains(what)) continue;
      Rows& rows = by_reason[finding.reason];
      if (rows.empty()) rows = {{"", "Old", "New"}};
      rows.push_back(row_of(finding));
    }
  }
  for (const auto& [reason, rows] : by_reason) {
    out << '\n';
    write_wrapped(out, "no verdict: " + reason);
    write_table(out, rows);
  }
}

void write_marks(std::ostream& out, const Comparison& comparison) {
  std::map<std::string, std::string> by_cell;
  for (const Finding& finding : comparison.findings) {
    for (const std::string& mark : finding.marks) {
      std::string& text = by_cell[cell_text(*finding.cell)];
      if (text.find(mark) == std::string::npos) text += (text.empty() ? "" : ", ") + mark;
    }
  }
  if (!by_cell.empty()) out << '\n';
  for (const auto& [cell, marks] : by_cell) {
    write_wrapped(out, std::string("* ").append(cell).append(": ").append(marks));
  }
}

void write_summary(std::ostream& out, const Comparison& comparison) {
  std::ostringstream text;
  for (const Verdict verdict :
       {Verdict::kWorse, Verdict::kBetter, Verdict::kUnclear, Verdict::kSame}) {
    text << comparison.count(verdict) << ' ' << verdict_text(verdict) << ", ";
  }
  text << comparison.without_verdict()
       << " without a verdict. Margin: " << comparison.margin_percent << " %"
       << (comparison.sets ? ", or what surveys of one side differ by" : "")
       << ". All intervals hold together with 95 % confidence.";
  out << '\n';
  write_wrapped(out, text.str());
  if (!comparison.sets) {
    write_wrapped(out,
                  "One survey a side cannot know how much runs of one machine differ: survey each "
                  "again, several times, and compare the directories.");
  }
}

}  // namespace

const char* verdict_text(Verdict verdict) {
  switch (verdict) {
    case Verdict::kWorse:
      return "worse";
    case Verdict::kBetter:
      return "better";
    case Verdict::kSame:
      return "same";
    case Verdict::kUnclear:
      break;
  }
  return "unclear";
}

void write_comparison(std::ostream& out, const Comparison& comparison) {
  write_side(out, "Old: ", *comparison.old_side);
  write_side(out, "New: ", *comparison.new_side);
  write_differences(out, comparison);
  out << "\nLatencies in ns, bandwidths in GB/s, changes in percent; CPU node > memory node.\n";
  if (comparison.count(Verdict::kUnclear) > 0) {
    out << "Seen: the smallest change, in percent, that would have been called one.\n";
  }
  write_verdicts(out, comparison);
  write_without_verdict(out, comparison);
  write_marks(out, comparison);
  write_summary(out, comparison);
}

}  // namespace velmo
