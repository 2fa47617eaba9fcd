// Made-up surveys.

#pragma once

#include <string>
#include <utility>
#include <vector>

#include "survey/record.h"

namespace velmo_test {

inline velmo::Cell MakeCell(const std::string& kind, int node) {
  velmo::Cell cell;
  cell.kind = kind;
  cell.from = {0, "0-3"};
  cell.memory.node = node;
  cell.parameters["scope"] = "node";
  return cell;
}

inline velmo::Repeat MakeRepeat(int round, velmo::Figures figures, bool disturbed = false) {
  velmo::Repeat repeat;
  repeat.round = round;
  repeat.figures = std::move(figures);
  if (disturbed) repeat.disturbed_by = {{"stolen_time", 2, 0.5, "%"}};
  return repeat;
}

// A cell of idle latency, or of bandwidth, with these values.
inline velmo::Cell CellOf(int node, const std::string& figure, const std::vector<double>& values) {
  velmo::Cell cell =
      MakeCell(figure == velmo::kBytesPerSecond ? velmo::kBandwidth : velmo::kIdleLatency, node);
  for (const double value : values) {
    cell.repeats.push_back(
        MakeRepeat(static_cast<int>(cell.repeats.size()) + 1, {{figure, value}}));
  }
  return cell;
}

inline velmo::Survey SurveyOf(std::vector<velmo::Cell> cells) {
  velmo::Survey survey;
  survey.host = "host";
  survey.started = "2026-11-21T20:33:58Z";
  survey.cells = std::move(cells);
  return survey;
}

}  // namespace velmo_test
