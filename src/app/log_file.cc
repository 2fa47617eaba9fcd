#include "app/log_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <ctime>

#include "app/console.h"

namespace velmo {
namespace {

constexpr mode_t kLogMode = 0666;

// Descriptor of the emptied regular file `name`, or -1. O_NONBLOCK keeps the open of a FIFO from
// waiting for a reader; the file is truncated only once it is known to be a regular one that has no
// other name.
int open_regular(const std::string& name) {
  const int fd =
      open(name.c_str(), O_WRONLY | O_CREAT | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC, kLogMode);
  if (fd < 0) return -1;
  struct stat status;
  if (fstat(fd, &status) == 0 && S_ISREG(status.st_mode) && status.st_nlink == 1 &&
      ftruncate(fd, 0) == 0) {
    return fd;
  }
  close(fd);
  return -1;
}

}  // namespace

std::string time_stamp() {
  const std::time_t now = std::time(nullptr);
  char text[100];
  const size_t length = std::strftime(text, sizeof text, "%Y%m%d_%H%M%S", std::localtime(&now));
  return {text, length};
}

bool LogFile::any_lost_ = false;

LogFile::LogFile(const std::string& name) : std::ostream(nullptr), name_(name) {
  const int fd = open_regular(name);
  if (fd < 0) return;
  if (fchmod(fd, kLogMode) != 0) Warn() << "Failed to chmod log file\n";
  file_ = __gnu_cxx::stdio_filebuf<char>(fd, std::ios::out);
  rdbuf(&file_);
}

LogFile::~LogFile() {
  if (!file_.is_open()) return;
  flush();
  // Network file systems report what could not be written only here.
  if (file_.close() != nullptr && good()) return;
  Warn() << "Failed to write log file " << name_ << ": " << std::strerror(errno) << '\n';
  unlink(name_.c_str());
  any_lost_ = true;
}

}  // namespace velmo
