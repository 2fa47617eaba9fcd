// A comparison as text for a terminal of 80 columns, and as data.

#pragma once

#include <ostream>

#include "compare/comparison.h"

namespace velmo {

// What differs besides the figures, then the figures, worse first, then what they are worth.
void write_comparison(std::ostream& out, const Comparison& comparison);

// The same, format "velmo-comparison" 1.0.
Json to_json(const Comparison& comparison);

// "better", "worse", "same" or "unclear".
const char* verdict_text(Verdict verdict);

}  // namespace velmo
