// The JSON of compare_report.h.

#include "app/table.h"
#include "compare/compare_report.h"

namespace velmo {
namespace {

Json to_json(const Side& side) {
  Json json = {{"path", side.path}, {"surveys", Json::array()}};
  for (const Survey& survey : side.surveys) {
    json["surveys"].push_back(
        {{"host", survey.host}, {"started", survey.started}, {"state", survey.state}});
  }
  return json;
}

Json median_or_null(const std::vector<double>& values) {
  return values.empty() ? Json(nullptr) : Json(median(values));
}

Json to_json(const Finding& finding) {
  Json json = {{"cell", cell_key(*finding.cell)},
               {"figure", finding.figure},
               {"load_of_smaller_peak", finding.load ? Json(*finding.load) : Json(nullptr)},
               {"old", median_or_null(finding.old_values)},
               {"new", median_or_null(finding.new_values)},
               {"old_count", finding.old_values.size()},
               {"new_count", finding.new_values.size()},
               {"verdict", verdict_text(finding.verdict)}};
  if (finding.reason.empty()) {
    json.update({{"change_percent", percent_of(finding.change.estimate)},
                 {"low_percent", percent_of(finding.change.low)},
                 {"high_percent", percent_of(finding.change.high)},
                 {"confidence", 1 - finding.level},
                 {"interval", finding.exact ? "Mann-Whitney" : "Student's t"},
                 {"margin_percent", percent_of(finding.margin)},
                 {"visible_percent", percent_of(finding.visible_change())}});
  } else {
    json["reason"] = finding.reason;
  }
  json["marks"] = finding.marks;
  return json;
}

}  // namespace

Json to_json(const Comparison& comparison) {
  Json json = {{"format", "velmo-comparison"},
               {"format_version", "1.0"},
               {"old", to_json(*comparison.old_side)},
               {"new", to_json(*comparison.new_side)},
               {"unit", comparison.sets ? "survey" : "repeat"},
               {"margin_percent", comparison.margin_percent},
               {"differences", Json::array()},
               {"only_old", comparison.only_old},
               {"only_new", comparison.only_new},
               {"counts", Json::object()},
               {"figures", Json::array()}};
  for (const Difference& difference : comparison.differences) {
    json["differences"].push_back({{"what", difference.what},
                                   {"old", difference.old_text},
                                   {"new", difference.new_text},
                                   {"kind", difference.kind},
                                   {"cells", difference.cells}});
  }
  for (const Verdict verdict :
       {Verdict::kWorse, Verdict::kBetter, Verdict::kUnclear, Verdict::kSame}) {
    json["counts"][verdict_text(verdict)] = comparison.count(verdict);
  }
  json["counts"]["without_verdict"] = comparison.without_verdict();
  for (const Finding& finding : comparison.findings) json["figures"].push_back(to_json(finding));
  return json;
}

}  // namespace velmo
