// What the fuzz targets share. A target is one source file with the entry point of libFuzzer; it
// calls Run with what it does to velmo and states with Require what must hold afterwards.

#pragma once

#include <getopt.h>
#include <sys/mman.h>
#include <unistd.h>

#include <csetjmp>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <iostream>
#include <sstream>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

namespace velmo_fuzz {

inline bool running = false;
inline jmp_buf at_exit;

// Ends the fuzzer, which keeps the input, with `rule` as the finding unless `holds`.
inline void Require(bool holds, const char* rule) {
  if (holds) return;
  std::fprintf(stderr, "Broken: %s\n", rule);
  std::abort();
}

// Buffer of a standard stream that counts what it is given.
struct Sink : std::streambuf {
  size_t written = 0;
  int overflow(int c) override { return ++written, traits_type::not_eof(c); }
  std::streamsize xsputn(const char*, std::streamsize n) override { return written += n, n; }
};

enum class End { kReturned, kExited, kNotConverted };

// Runs `body` with silent standard streams. exit, which has to tell its reason, ends `body` alone,
// by a jump that leaks what it owns; so the large objects are the caller's. The exceptions of
// conversions are a documented end, too.
inline End Run(const std::function<void()>& body) {
  // Not destroyed: the streams are flushed behind the last destructor.
  static Sink& out = *new Sink;
  static Sink& err = *new Sink;
  std::cout.rdbuf(&out);
  std::cerr.rdbuf(&err);
  opterr = 0;  // getopt has a stream of its own
  out.written = err.written = 0;
  if (const int jumped = setjmp(at_exit)) {
    Require(jumped == 1 ? out.written > 0 : jumped == 2 && err.written > 0, "exit tells why");
    return End::kExited;
  }
  End end = End::kReturned;
  running = true;
  try {
    body();
  } catch (const std::logic_error& error) {
    const std::string text = error.what();
    Require(text.starts_with("Not a number: ") || text.starts_with("Number out of range: "),
            "exceptions are those of conversions");
    end = End::kNotConverted;
  }
  running = false;
  return end;
}

inline std::vector<std::string> Lines(const std::string& text) {
  std::vector<std::string> lines;
  std::istringstream in(text);
  for (std::string line; std::getline(in, line);) lines.push_back(line);
  return lines;
}

// Makes /proc/self/fd/<fd> a file in memory. The targets number from 100 on, so that a path with
// "%d" leads to such files: "/proc/self/fd/11%d".
inline void WriteFile(int fd, const std::string& text) {
  const int file = memfd_create("velmo_fuzz", 0);
  const ssize_t written = write(file, text.data(), text.size());
  Require(written == static_cast<ssize_t>(text.size()) && dup2(file, fd) == fd, "a file in memory");
  close(file);
}

}  // namespace velmo_fuzz

// The linker leads every call of exit here (--wrap).
extern "C" [[noreturn]] void __real_exit(int status);
extern "C" [[noreturn]] void __wrap_exit(int status) {
  if (!std::exchange(velmo_fuzz::running, false)) __real_exit(status);
  std::longjmp(velmo_fuzz::at_exit, 1 + status);
}

// The jump out of exit leaks.
extern "C" const char* __asan_default_options() { return "detect_leaks=0"; }
