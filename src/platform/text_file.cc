#include "platform/text_file.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <charconv>
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

bool read_text(const std::string& path, std::string& text) {
  constexpr size_t kMaxText = size_t{16} << 20;
  constexpr size_t kStep = size_t{16} << 10;
  text.clear();
  const int fd = open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK);
  if (fd < 0) return false;
  ssize_t got = 1;
  while (got > 0 && text.size() < kMaxText) {
    const size_t had = text.size();
    text.resize(had + kStep);
    got = read(fd, text.data() + had, kStep);
    text.resize(had + static_cast<size_t>(got > 0 ? got : 0));
  }
  const int error = errno;
  close(fd);
  errno = error;
  return got >= 0;
}

std::optional<int64_t> number_after(std::string_view text, std::string_view key) {
  const auto in_word = [](char c) {
    return std::isalnum(static_cast<unsigned char>(c)) != 0 || c == '_';
  };
  for (size_t at = text.find(key); at != std::string_view::npos; at = text.find(key, at + 1)) {
    std::string_view rest = text.substr(at + key.size());
    if ((at > 0 && in_word(text[at - 1])) || rest.empty() || in_word(rest.front())) continue;
    rest.remove_prefix(std::min(rest.find_first_not_of(" \t:="), rest.size()));
    int64_t value = 0;
    const auto [end, error] = std::from_chars(rest.data(), rest.data() + rest.size(), value);
    if (error == std::errc()) return value;
  }
  return std::nullopt;
}

std::string first_line(const std::string& path) {
  std::string line;
  read_first_line(path, line);
  return line;
}

}  // namespace velmo
