// The tables of a survey on a terminal.

#pragma once

#include <ostream>

#include "survey/record.h"

namespace velmo {

// Readable at 80 columns and without colour.
void write_survey(std::ostream& out, const Survey& survey);

}  // namespace velmo
