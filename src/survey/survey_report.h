// The tables of a survey on a terminal.

#pragma once

#include <ostream>
#include <string>

#include "survey/record.h"

namespace velmo {

// Readable at 80 columns and without colour; what can be trusted comes last. `path` is where the
// survey was written to just now; empty: nowhere.
void write_survey(std::ostream& out, const Survey& survey, const std::string& path = {});

// "Bandwidth, node 0 to node 1, 2:1".
std::string cell_name(const Cell& cell);

}  // namespace velmo
