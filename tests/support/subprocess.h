// Runs code in a child process and collects what it prints and how it ends: the way to test
// functions that call exit().

#pragma once

#include <functional>
#include <string>
#include <vector>

namespace velmo_test {

struct Outcome {
  int status = -1;  // exit status; 128 + signal number when a signal ended the child
  std::string out;  // standard output
  std::string err;  // standard error
};

// Runs `body` in a forked child, which exits with 0 when `body` returns.
Outcome RunForked(const std::function<void()>& body);

// Runs the built velmo with `args` in directory `dir` (empty: here).
Outcome RunVelmo(const std::vector<std::string>& args, const std::string& dir = "");

// A directory of its own under /tmp, removed with all it holds.
class TempDir {
 public:
  TempDir();
  ~TempDir();
  TempDir(const TempDir&) = delete;
  TempDir& operator=(const TempDir&) = delete;

  const std::string& path() const { return path_; }
  // Writes a file below the directory, making the folders on the way; returns its path.
  std::string Write(const std::string& name, const std::string& text) const;

 private:
  std::string path_;
};

}  // namespace velmo_test
