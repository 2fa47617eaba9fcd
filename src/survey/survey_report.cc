#include "survey/survey_report.h"

#include "app/table.h"

namespace velmo {

void write_survey(std::ostream& out, const Survey& survey) {
  std::vector<std::vector<std::string>> rows = {{"Cell", "Figure", "Median", "Low", "High"}};
  for (const Cell& cell : survey.cells) {
    for (const auto& [name, e] : cell.summary) {
      rows.push_back({cell_key(cell), name, fixed_text(e.median, 2), fixed_text(e.low, 2),
                      fixed_text(e.high, 2)});
    }
  }
  write_table(out, rows);
}

}  // namespace velmo
