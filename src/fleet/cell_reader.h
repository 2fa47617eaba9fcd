// Reads the figures of one cell of a survey.

#pragma once

#include <simdjson.h>

#include <string>
#include <unordered_map>
#include <vector>

#include "fleet/host.h"
#include "survey/loaded_curve.h"
#include "survey/record.h"

namespace velmo {

// What of the cells says how they were measured, and what state they are in.
struct CellsRead {
  std::string method;       // pattern, stride, pages and prefetchers of idle latency
  double buffer_bytes = 0;  // of the same
  int cells = 0;
  int failed = 0;
  std::string again;  // the first cell that is disturbed or misplaced, with how
  int disturbed = 0;
};

class CellReader {
 public:
  explicit CellReader(FigureNames& names) : names_(names) {}

  // Adds the figures of `json` to `host` where the cell is ok. Throws simdjson_error where it is
  // not what the format says.
  void Read(simdjson::ondemand::object json, Host& host, CellsRead& read);

 private:
  struct Numbers {  // by name of figure
    Measured average, p99, p999, bandwidth;
  };

  void ReadPoints(simdjson::ondemand::array json);
  static Numbers ReadSummary(simdjson::ondemand::object json);
  void ReadParameters(simdjson::ondemand::object json);
  void AddFigures(Host& host);
  void Add(Host& host, FigureClass figure_class, const Measured& measured);

  FigureNames& names_;
  std::unordered_map<std::string, uint32_t> known_;  // by key and class; spares the common lock
  Cell cell_;                                        // kind, source, memory and parameters alone
  std::string pages_;
  std::string method_;
  double buffer_bytes_ = 0;
  std::vector<CurvePoint> points_;
  Numbers numbers_;
  bool misplaced_ = false;
};

}  // namespace velmo
