#include "survey/trust_report.h"

#include <algorithm>
#include <map>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "app/table.h"
#include "platform/watch_rules.h"
#include "survey/survey_report.h"

namespace velmo {
namespace {

// How often each rule was broken in the cells that are disturbed.
std::map<std::string, int> broken_rules_of(const Survey& survey) {
  std::map<std::string, int> rules;
  for (const Cell& cell : survey.cells) {
    if (cell.state != kDisturbed) continue;
    for (const Repeat& repeat : cell.repeats) {
      for (const Disturbance& d : repeat.disturbed_by) ++rules[d.rule];
    }
  }
  return rules;
}

// The cells that are disturbed, by name; of many the first.
std::string named_disturbed(const Survey& survey) {
  constexpr int kMostNamed = 6;
  std::string names;
  int count = 0;
  for (const Cell& cell : survey.cells) {
    if (cell.state != kDisturbed || ++count > kMostNamed) continue;
    names += (names.empty() ? "" : "; ") + cell_name(cell);
  }
  if (count > kMostNamed) names += "; and " + std::to_string(count - kMostNamed) + " more";
  return names;
}

// What the kernel told of no repeat, by the reason without its path: "throttle count, clock".
std::map<std::string, std::string> unseen_of(const Survey& survey) {
  std::vector<std::pair<std::string, std::string>> unseen;  // reading, reason
  std::set<std::string> seen;
  const auto look = [&](const std::vector<Repeat>& repeats) {
    for (const Repeat& repeat : repeats) {
      for (const char* group : {"threads", "cpus", "machine"}) {
        if (!repeat.watch.is_object() || !repeat.watch.contains(group)) continue;
        for (const auto& [name, reading] : repeat.watch.at(group).items()) {
          if (!reading.is_object()) {
            seen.insert(name);
          } else if (std::ranges::find(unseen, name, [](auto& u) { return u.first; }) ==
                     unseen.end()) {
            const auto told = reading.find("reason");
            const bool text = told != reading.end() && told->is_string();
            const std::string reason = text ? told->get<std::string>() : "";
            const size_t colon = reason.rfind(": ");
            unseen.emplace_back(name, reason.substr(colon == std::string::npos ? 0 : colon + 2));
          }
        }
      }
    }
  };
  for (const Cell& cell : survey.cells) {
    look(cell.repeats);
    for (const Point& point : cell.points) look(point.repeats);
  }
  std::map<std::string, std::string> names;
  for (auto& [name, reason] : unseen) {
    if (seen.contains(name)) continue;
    std::string& list = names[reason];
    std::ranges::replace(name, '_', ' ');
    list += (list.empty() ? "" : ", ") + name;
  }
  return names;
}

}  // namespace

void write_unseen(std::ostream& out, const Survey& survey) {
  for (const auto& [reason, names] : unseen_of(survey)) {
    write_wrapped(out, "Not seen: " + names + (reason.empty() ? "" : " (" + reason + ")"));
  }
}

void write_failures(std::ostream& out, const Survey& survey) {
  const std::map<std::string, std::string> marks = {
      {"placement", "less than 99 % of the pages on their node"},
      {"small_buffer", "the caches hold a part of the buffer"},
      {"page_size", "smaller pages than asked for"}};
  const Json large = survey.run_notes.value("large_pages", Json());
  if (large.is_object() && large.contains("reason") && large["reason"].is_string()) {
    write_wrapped(
        out, "Mind: nothing was measured on 2 MiB pages: " + large["reason"].get<std::string>());
  }
  std::map<std::string, int> marked;
  std::map<std::string, int> unreached;  // by what stopped them
  for (const Cell& cell : survey.cells) {
    if (is_unreached(cell)) {
      ++unreached[cell.stopped_by];
    } else if (cell.state == kFailed) {
      write_wrapped(out, "Failed: " + cell_name(cell) + ": " + cell.message);
    }
    for (const std::string& mark : cell.marks) {
      if (++marked[mark] > 1) continue;
      const auto text = marks.find(mark);
      const std::string& why = mark == "failed_repeats" ? cell.message
                               : text != marks.end()    ? text->second
                                                        : mark;
      write_wrapped(out, "Mind: " + cell_name(cell) + ": " + why);
    }
  }
  for (const auto& [why, count] : unreached) {
    out << "Not measured: " << count << (count == 1 ? " cell, " : " cells, ")
        << (why == kInterrupted ? "it was interrupted\n" : "the time limit came first\n");
  }
  for (const auto& [mark, count] : marked) {
    if (count > 1) out << "Mind: other cells with the same: " << count - 1 << " (" << mark << ")\n";
  }
}

void write_trust(std::ostream& out, const Survey& survey) {
  size_t disturbed = 0;
  size_t failed = 0;
  for (const Cell& cell : survey.cells) {
    disturbed += cell.state == kDisturbed ? 1 : 0;
    failed += cell.state == kFailed ? 1 : 0;
  }
  const size_t measured = survey.cells.size() - failed;
  if (disturbed == 0) {
    if (measured > 0) {
      out << "Undisturbed: all " << measured << " cells"
          << (failed > 0 ? " that were measured" : "") << '\n';
    }
    return;
  }
  std::string text =
      "Disturbed: " + std::to_string(disturbed) + " of " + std::to_string(measured) + " cells";
  const std::map<std::string, int> rules = broken_rules_of(survey);
  const char* separator = ", by ";
  for (const auto& [rule, count] : rules) {
    text += separator + rule + " (" + std::to_string(count) + (count == 1 ? " time)" : " times)");
    separator = ", ";
  }
  write_wrapped(out, text);
  write_wrapped(out, "  " + named_disturbed(survey));
  for (const auto& [rule, count] : rules) {
    if (!rule_advice(rule).empty()) {
      write_wrapped(out, "  " + rule + ": " + std::string(rule_advice(rule)));
    }
  }
}

}  // namespace velmo
