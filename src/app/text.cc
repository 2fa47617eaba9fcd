#include "app/text.h"

#include <algorithm>
#include <charconv>
#include <limits>
#include <sstream>
#include <stdexcept>

#include "app/console.h"

namespace velmo {
namespace {

// More CPUs or nodes than any machine has; bounds what a damaged list can make us allocate.
constexpr size_t kMaxListEntries = 65536;

bool is_digit(char c) { return c >= '0' && c <= '9'; }

// Runs a standard conversion; its exceptions come out with the text that caused them.
template <typename Convert>
auto convert(const std::string& s, Convert standard_conversion) {
  try {
    return standard_conversion(s);
  } catch (const std::invalid_argument&) {
    throw std::invalid_argument("Not a number: " + s);
  } catch (const std::out_of_range&) {
    throw std::out_of_range("Number out of range: " + s);
  }
}

std::string bad_range(const std::string& range) {
  return "Invalid range value. Check range value: " + range;
}

std::string range_text(long first, long last) {
  return std::to_string(first) + "-" + std::to_string(last);
}

}  // namespace

std::string vector_to_str_range(const std::vector<int>& v, int start) {
  std::string text;
  for (size_t i = start; i < v.size(); ++i) {
    if (!text.empty()) text += ',';
    text += std::to_string(v[i]);
    const size_t first = i;
    while (i + 1 < v.size() && v[i + 1] == v[i] + 1) ++i;
    if (i > first) text += '-' + std::to_string(v[i]);
  }
  return text;
}

std::string parse_list(const std::string& s, std::vector<int>& list) {
  list.clear();
  std::string text = s;
  std::replace(text.begin(), text.end(), ',', ' ');
  for (const char c : text) {
    if (c != ' ' && c != '-' && !is_digit(c)) return std::string("Invalud range value: ") + c;
  }

  std::istringstream in(text);
  constexpr long kMaxInt = std::numeric_limits<int>::max();
  long start = -1;  // the number that a following "-m" would close; -1: none
  while (in >> std::ws, !in.eof()) {
    const auto at = static_cast<size_t>(in.tellg());
    long value = 0;
    if (!(in >> value) || value > kMaxInt || value < -kMaxInt) {
      return bad_range(text.substr(at, text.find(' ', at) - at));
    }
    if (text[at] != '-') {
      if (list.size() == kMaxListEntries) return bad_range(std::to_string(value));
      list.push_back(static_cast<int>(value));
      start = value;
      continue;
    }
    const long last = -value;
    if (start < 0) return bad_range(std::to_string(last));
    if (last <= start || last - start + list.size() > kMaxListEntries) {
      return bad_range(range_text(start, last));
    }
    for (long next = start + 1; next <= last; ++next) list.push_back(static_cast<int>(next));
    start = -1;
  }
  std::sort(list.begin(), list.end());
  list.erase(std::unique(list.begin(), list.end()), list.end());
  return "";
}

std::vector<int> str_range_to_vector(const std::string& s) {
  std::vector<int> list;
  const std::string complaint = parse_list(s, list);
  if (!complaint.empty()) Fatal() << complaint << '\n';
  return list;
}

bool is_number(const std::string& s) {
  // The expression ([(-|+)]|[0-9])+, whose bracket holds a range from '(' to '|', wider than it
  // looks; callers count on it. Written out, since the library's matcher recurses per character.
  return !s.empty() && std::all_of(s.begin(), s.end(), [](char c) { return c >= '(' && c <= '|'; });
}

int to_int(const std::string& s) {
  return convert(s, [](const std::string& text) { return std::stoi(text); });
}

long to_long(const std::string& s) {
  return convert(s, [](const std::string& text) { return std::stol(text); });
}

unsigned long long to_unsigned(const std::string& s) {
  return convert(s, [](const std::string& text) { return std::stoull(text); });
}

int64_t get_bytes(const std::string& s) {
  const char unit = s.empty() ? '\0' : s.back();
  if (is_digit(unit)) return to_long(s);

  const std::string digits = s.substr(0, s.empty() ? 0 : s.size() - 1);
  int64_t scale = 0;
  if (unit == 'g' || unit == 'G') scale = int64_t{1} << 30;
  if (unit == 'm' || unit == 'M') scale = int64_t{1} << 20;
  if (unit == 'k' || unit == 'K') scale = int64_t{1} << 10;
  int64_t bytes = 0;
  if (scale == 0 || !is_number(digits) || __builtin_mul_overflow(to_long(digits), scale, &bytes)) {
    Fatal() << "Invalid memory size: " << s << '\n';
  }
  return bytes;
}

std::optional<long> leading_number(const std::string& s) {
  long value = 0;
  const auto [end, error] = std::from_chars(s.data(), s.data() + s.size(), value);
  if (error != std::errc()) return std::nullopt;
  return value;
}

std::string printable(std::string text) {
  constexpr unsigned char kDelete = 0x7f;
  // UTF-8 of U+0080 to U+009F, which terminals obey as well.
  constexpr unsigned char kHighControl = 0xc2;
  constexpr unsigned char kHighEnd = 0xa0;
  for (size_t i = 0; i < text.size(); ++i) {
    const auto c = static_cast<unsigned char>(text[i]);
    if (c < ' ' || c == kDelete) text[i] = '?';
    if (c != kHighControl || i + 1 == text.size()) continue;
    const auto next = static_cast<unsigned char>(text[i + 1]);
    if (next >= 0x80 && next < kHighEnd) text.replace(i, 2, "?");
  }
  return text;
}

std::string duration_text(double seconds) {
  constexpr long kMinute = 60;
  constexpr long kHour = 60 * kMinute;
  const auto s = static_cast<long>(seconds);
  const auto two = [](long large, const char* unit, long small, const char* small_unit) {
    return std::to_string(large) + unit + std::to_string(small) + small_unit;
  };
  if (s >= kHour) return two(s / kHour, " h ", s % kHour / kMinute, " min");
  if (s >= kMinute) return two(s / kMinute, " min ", s % kMinute, " s");
  return std::to_string(s) + " s";
}

}  // namespace velmo
