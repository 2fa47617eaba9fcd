#include "platform/text_file.h"

#include <fstream>
#include <limits>

namespace velmo {

std::string numbered_path(const std::string& format, int number) {
  std::string path = format;
  const size_t at = path.find("%d");
  if (at != std::string::npos) path.replace(at, 2, std::to_string(number));
  return path;
}

bool read_line(std::istream& in, std::string& line) {
  line.clear();
  char c = 0;
  while (line.size() < kMaxLine && in.get(c)) {
    if (c == '\n') return true;
    line += c;
  }
  if (in) in.ignore(std::numeric_limits<std::streamsize>::max(), '\n');
  return !line.empty();
}

bool read_first_line(const std::string& path, std::string& line) {
  std::ifstream in(path);
  if (!in) return false;
  read_line(in, line);
  // A directory opens, but cannot be read. Half a list is worse than none.
  return !in.bad() && line.size() < kMaxLine;
}

}  // namespace velmo
