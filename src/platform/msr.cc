#include "platform/msr.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>

namespace velmo {

std::optional<uint64_t> read_msr(const std::string& path, uint32_t address) {
  const int fd = open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK);
  if (fd < 0) return std::nullopt;
  uint64_t value = 0;
  const bool whole = pread(fd, &value, sizeof value, static_cast<off_t>(address)) == sizeof value;
  const int error = errno;
  close(fd);
  errno = error;
  if (!whole) return std::nullopt;
  return value;
}

}  // namespace velmo
