// What the platform readers share: numbered paths and bounded reads of small text files.

#pragma once

#include <cstdint>
#include <istream>
#include <optional>
#include <string>
#include <string_view>

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

// The same; empty where it cannot be read.
std::string first_line(const std::string& path);

// The file at `path`, up to 16 MiB of it, read at once as the files of the kernel want to be, into
// `text`. False, with errno set, when it cannot be opened or read. Waits for no writer of a pipe.
bool read_text(const std::string& path, std::string& text);

// The number behind the word `key` of `text` and a blank, ':' or '=': 12 of "MemFree:   12 kB" and
// of "avg300=0.00 total=12". None: no such word, or no number behind it.
std::optional<int64_t> number_after(std::string_view text, std::string_view key);

}  // namespace velmo
