#include "app/console.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/uio.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>

namespace velmo {

namespace {

struct Prefixes {
  const char* warning;
  const char* error;
};

Prefixes prefixes = {kWarningPrefix, kErrorPrefix};

}  // namespace

void choose_prefixes() {
  const char* const no_color = std::getenv("NO_COLOR");
  const bool unwanted = no_color != nullptr && *no_color != '\0';
  if (unwanted || isatty(STDERR_FILENO) != 1) prefixes = {"[VELMO Warning] ", "[VELMO Error] "};
}

const char* warning_prefix() { return prefixes.warning; }

const char* error_prefix() { return prefixes.error; }

void init_console() {
  int fd = 0;
  do {
    fd = open("/dev/null", O_RDWR);
  } while (fd >= 0 && fd <= STDERR_FILENO);
  if (fd >= 0) close(fd);
  std::cout << std::unitbuf;
}

std::ostream& Info() { return std::cout << kInfoPrefix; }

std::ostream& Debug() { return std::cout << kDebugPrefix; }

std::ostream& Error() { return std::cerr << prefixes.error; }

void warn_from_handler(const char* text) {
  const iovec parts[] = {
      {const_cast<char*>(prefixes.warning), std::strlen(prefixes.warning)},
      {const_cast<char*>(text), std::strlen(text)},
  };
  // Nothing can be done about a standard error that does not take the text.
  [[maybe_unused]] const ssize_t written = writev(STDERR_FILENO, parts, 2);
}

std::atomic<int> open_line = -1;

void erase_line_from_handler() {
  const int terminal = open_line;
  pollfd writable{terminal, POLLOUT, 0};
  if (terminal == -1 || poll(&writable, 1, 0) != 1) return;
  [[maybe_unused]] const ssize_t written = write(terminal, kEraseLine, sizeof kEraseLine - 1);
}

void check_output() {
  if (!std::cout) Fatal() << "Failed to write to standard output\n";
}

}  // namespace velmo
