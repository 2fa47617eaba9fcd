// Tables of text for a terminal of 80 columns.

#pragma once

#include <ostream>
#include <string>
#include <vector>

namespace velmo {

inline constexpr size_t kTableWidth = 80;

// Writes `rows`, the first of which holds the headings, in columns two blanks apart: the first
// column from the left, the others to the right. Where a table is wider than kTableWidth, the rest
// of its columns follows as a table of its own below, behind the first column again. Widths count
// characters, not bytes.
void write_table(std::ostream& out, const std::vector<std::vector<std::string>>& rows);

// Writes `text` in lines of kTableWidth at most, broken at blanks; those behind the first are
// indented by four.
void write_wrapped(std::ostream& out, const std::string& text);

// `value` with `decimals` digits behind the point.
std::string fixed_text(double value, int decimals);

}  // namespace velmo
