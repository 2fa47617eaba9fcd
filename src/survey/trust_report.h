// What a survey says of its own figures: what failed, what is doubtful, and what disturbed it.

#pragma once

#include <ostream>

#include "survey/record.h"

namespace velmo {

// A line for each cell that failed, and for what is to be minded.
void write_failures(std::ostream& out, const Survey& survey);

// What the kernel told of no repeat, and no rule could be broken by: a line a reason.
void write_unseen(std::ostream& out, const Survey& survey);

// The line that says whether the figures can be trusted, and where not, what to do.
void write_trust(std::ostream& out, const Survey& survey);

}  // namespace velmo
