// Runs code that may end the process in a child, and collects what it prints and how it ends.

#pragma once

#include <pty.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iostream>
#include <iterator>
#include <string>
#include <vector>

#include "app/console.h"

namespace velmo_test {

struct Outcome {
  int status = -1;  // exit status; 128 + signal number when a signal ended the child
  std::string out;  // standard output
  std::string err;  // standard error

  bool operator==(const Outcome&) const = default;
  friend std::ostream& operator<<(std::ostream& out, const Outcome& outcome) {
    return out << outcome.status << "\nout: " << outcome.out << "\nerr: " << outcome.err;
  }
};

// Of the velmo that was built with the running tests.
inline std::filesystem::path VelmoPath() {
  return std::filesystem::read_symlink("/proc/self/exe").parent_path().parent_path() / "velmo";
}

// A line on standard error behind its prefix.
inline std::string Error(const std::string& line) { return velmo::kErrorPrefix + line + '\n'; }
inline std::string Warning(const std::string& line) { return velmo::kWarningPrefix + line + '\n'; }

inline std::string ReadAll(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(in), {}};
}

// A directory of its own under /tmp, removed with all it holds.
class TempDir {
 public:
  TempDir() {
    if (mkdtemp(path_.data()) == nullptr) std::abort();
  }
  ~TempDir() { std::filesystem::remove_all(path_); }
  TempDir(const TempDir&) = delete;
  TempDir& operator=(const TempDir&) = delete;

  const std::string& path() const { return path_; }
  // Writes a file below the directory, making the folders on the way; returns its path.
  std::string Write(const std::string& name, const std::string& text) const {
    const std::filesystem::path path = std::filesystem::path(path_) / name;
    std::filesystem::create_directories(path.parent_path());
    std::ofstream(path, std::ios::binary) << text;
    return path;
  }

 private:
  std::string path_ = "/tmp/velmo_test_XXXXXX";
};

// Runs `body` in a forked child, which exits with 0 when `body` returns.
inline Outcome RunForked(const std::function<void()>& body) {
  const TempDir dir;
  const std::string out = dir.Write("out", "");
  const std::string err = dir.Write("err", "");
  std::cout.flush();
  const pid_t child = fork();
  if (child == 0) {
    if (!std::freopen(out.c_str(), "w", stdout) || !std::freopen(err.c_str(), "w", stderr))
      _exit(1);
    // An exception must end the child, not unwind into the test that forked it.
    [&body]() noexcept { body(); }();
    std::cout.flush();
    _exit(0);
  }
  int status = 0;
  waitpid(child, &status, WUNTRACED);
  if (WIFSTOPPED(status)) kill(child, SIGKILL);  // nobody would wake it
  const int code = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
  return {code, ReadAll(out), ReadAll(err)};
}

// Of bash with `script`, in which $0 is that velmo.
inline Outcome RunScript(const std::string& script) {
  return RunForked(
      [&] { execl("/bin/bash", "bash", "-c", script.c_str(), VelmoPath().c_str(), nullptr); });
}

// What `body` writes to a terminal of `columns` columns.
inline std::string OnTerminal(unsigned short columns, const std::function<void()>& body) {
  std::cout.flush();
  const winsize size{24, columns, 0, 0};
  int terminal = -1;
  const pid_t child = forkpty(&terminal, nullptr, nullptr, &size);
  if (child == 0) {
    body();
    std::cout.flush();
    _exit(0);
  }
  std::string text;
  char buffer[4096];
  for (ssize_t n; (n = read(terminal, buffer, sizeof buffer)) > 0;) text.append(buffer, n);
  close(terminal);
  waitpid(child, nullptr, 0);
  return text;
}

}  // namespace velmo_test
