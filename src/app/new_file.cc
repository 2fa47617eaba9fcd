#include "app/new_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

#include "app/threads.h"

namespace velmo {
namespace {

// The mode of a new file, as the user's mask leaves it.
mode_t usual_mode() {
  const mode_t mask = umask(0);
  umask(mask);
  return 0666 & ~mask;
}

// Errno of what failed; 0: all is on its way to the disk.
int write_all(int fd, std::string_view text) {
  while (!text.empty()) {
    const ssize_t written = write(fd, text.data(), text.size());
    if (written < 0 && errno == EINTR) continue;
    if (written <= 0) return written < 0 ? errno : ENOSPC;
    text.remove_prefix(static_cast<size_t>(written));
  }
  return fchmod(fd, usual_mode()) == 0 && fsync(fd) == 0 ? 0 : errno;
}

}  // namespace

std::string replace_file(const std::string& path, std::string_view text) {
  const auto failed = [&path](int error) {
    return "Failed to write " + path + ": " + std::strerror(error);
  };
  struct stat status {};
  // Of a link what it leads to: /dev/stdout is one, which nothing may replace.
  if (stat(path.c_str(), &status) == 0 && !S_ISREG(status.st_mode)) {
    return "Failed to write " + path + ": it exists and is not a regular file";
  }
  const EndSignalsBlocked blocked;  // one that comes meanwhile leaves no file of that name behind
  std::string fresh = path + ".XXXXXX";
  const int fd = mkstemp(fresh.data());
  if (fd < 0) return failed(errno);
  int error = write_all(fd, text);
  if (close(fd) != 0 && error == 0) error = errno;
  if (error == 0 && std::rename(fresh.c_str(), path.c_str()) != 0) error = errno;
  if (error == 0) return {};
  unlink(fresh.c_str());
  return failed(error);
}

}  // namespace velmo
