// What the platform readers share: numbered paths and bounded reads of small text files.

#pragma once

#include <istream>
#include <string>

namespace velmo {

// Longest line that is kept, in characters. A list of every second CPU of 8,192 takes 20,000.
inline constexpr size_t kMaxLine = 65536;

// `format`, a path with one "%d", for `number`.
std::string numbered_path(const std::string& format, int number);

// Reads the next line, without its end, into `line`; what exceeds kMaxLine is dropped. False at the
// end of the text.
bool read_line(std::istream& in, std::string& line);

// First line of the file at `path`, empty when the file holds none. False when the file cannot be
// opened or read, or its line is longer than kMaxLine.
bool read_first_line(const std::string& path, std::string& line);

}  // namespace velmo
