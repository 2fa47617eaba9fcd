// The two sides of a comparison, and which of their cells belong together.

#pragma once

#include <string>
#include <vector>

#include "survey/record.h"

namespace velmo {

// One survey, or the surveys of one directory.
struct Side {
  std::string path;
  std::vector<Survey> surveys;
};

// The side at `path`: a survey's file, or a directory, of which every file counts whose name ends
// with ".json", in the order of names. Throws std::runtime_error that says what is wrong: a path
// that cannot be read, a directory without a survey, a file that is no survey or has a cell twice.
Side read_side(const std::string& path);

// The cells of one key. Every survey of a side has it or has it not.
struct CellPair {
  std::string key;
  std::vector<const Cell*> old_cells;
  std::vector<const Cell*> new_cells;

  bool matched() const { return !old_cells.empty() && !new_cells.empty(); }
  const Cell& any() const { return old_cells.empty() ? *new_cells.front() : *old_cells.front(); }
};

// Every key of either side, in the order of the surveys. The cells stay owned by the sides.
std::vector<CellPair> match_cells(const Side& old_side, const Side& new_side);

}  // namespace velmo
