// Text and what it stands for: numbers, sizes, CPU lists and durations.

#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace velmo {

// CPU list as text, from index `start` on: [1,2,3,5,7,8] is "1-3,5,7-8". The list must be sorted;
// nothing left to write is "".
std::string vector_to_str_range(const std::vector<int>& v, int start);

// CPU list from text: numbers and ranges, separated by commas or blanks; sorted, each number once.
// Empty: `list` holds it. Else what is wrong: any other character, a range that does not rise, a
// number beyond int, text that is no number, or a list of more than 65,536 entries.
std::string parse_list(const std::string& s, std::vector<int>& list);

// The same; exit(1) with what is wrong.
std::vector<int> str_range_to_vector(const std::string& s);

// True when every character of the non-empty `s` lies between '(' and '|' in ASCII, which admits
// digits, signs, letters and most punctuation; the conversion that follows has to catch the rest.
bool is_number(const std::string& s);

// `s` as std::stoi, std::stol and std::stoull read it: what follows the leading number is ignored.
// The exception that they throw tells the text: "Not a number: x1".
int to_int(const std::string& s);
long to_long(const std::string& s);
unsigned long long to_unsigned(const std::string& s);

// A size in bytes with an optional binary unit (k/K, m/M, g/G). exit(1) for another unit, for text
// before the unit that is no number and for a size beyond 2^63 - 1. Negative sizes pass.
int64_t get_bytes(const std::string& s);

// The number that `s` begins with, for text that may be damaged; none: it begins with no number, or
// with one beyond 64 bits.
std::optional<long> leading_number(const std::string& s);

// `text` as it may go to a terminal: '?' in place of each control character, line ends among them,
// so that nothing in it moves the cursor or ends the line.
std::string printable(std::string text);

// "2 min 10 s": `seconds`, 0 or more, in its two largest units.
std::string duration_text(double seconds);

}  // namespace velmo
