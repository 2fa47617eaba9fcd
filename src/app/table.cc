#include "app/table.h"

#include <algorithm>
#include <cstdio>

namespace velmo {
namespace {

constexpr size_t kGap = 2;

// Characters of UTF-8 text.
size_t text_width(const std::string& text) {
  return static_cast<size_t>(
      std::count_if(text.begin(), text.end(), [](char c) { return (c & 0xC0) != 0x80; }));
}

const std::string& cell_at(const std::vector<std::string>& row, size_t column) {
  static const std::string kNothing;
  return column < row.size() ? row[column] : kNothing;
}

std::string line_of(const std::vector<std::string>& row, const std::vector<size_t>& widths,
                    size_t begin, size_t end) {
  std::string line = cell_at(row, 0);
  line.append(widths[0] - text_width(line), ' ');
  for (size_t c = begin; c < end; ++c) {
    const std::string& text = cell_at(row, c);
    line.append(kGap + widths[c] - text_width(text), ' ') += text;
  }
  return line.erase(line.find_last_not_of(' ') + 1);
}

}  // namespace

void write_table(std::ostream& out, const std::vector<std::vector<std::string>>& rows) {
  std::vector<size_t> widths;
  for (const auto& row : rows) {
    widths.resize(std::max(widths.size(), row.size()));
    for (size_t c = 0; c < row.size(); ++c) widths[c] = std::max(widths[c], text_width(row[c]));
  }
  for (size_t begin = 1, end = 1; !widths.empty() && (begin == 1 || begin < widths.size());
       begin = end) {
    size_t width = widths[0];
    while (end < widths.size() && (end == begin || width + kGap + widths[end] <= kTableWidth)) {
      width += kGap + widths[end++];
    }
    if (begin > 1) out << '\n';
    for (const auto& row : rows) out << line_of(row, widths, begin, end) << '\n';
    if (end >= widths.size()) break;
  }
}

void write_wrapped(std::ostream& out, const std::string& text) {
  constexpr size_t kIndent = 4;
  size_t room = kTableWidth;
  for (size_t at = 0; at < text.size();) {
    size_t end = text.size();
    if (end - at > room) {
      end = text.rfind(' ', at + room);
      if (end == std::string::npos || end <= at)
        end = std::min(text.find(' ', at + 1), text.size());
    }
    if (at > 0) out << std::string(kIndent, ' ');
    out << text.substr(at, end - at) << '\n';
    at = std::min(end + 1, text.size());
    room = kTableWidth - kIndent;
  }
}

std::string fixed_text(double value, int decimals) {
  char text[400];  // the largest double has 309 digits before the point
  std::snprintf(text, sizeof text, "%.*f", decimals, value);
  return text;
}

}  // namespace velmo
