#include "mem/target.h"

#include <numa.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <sys/vfs.h>
#include <unistd.h>

#include "app/text.h"
#include "platform/text_file.h"

namespace velmo {
namespace {

// Bytes that a character device says it has; -1 where it does not tell.
int64_t device_size(const struct stat& status) {
  if (!S_ISCHR(status.st_mode)) return -1;
  const std::string path = "/sys/dev/char/" + std::to_string(major(status.st_rdev)) + ":" +
                           std::to_string(minor(status.st_rdev)) + "/size";
  std::string text;
  // Few other character devices have such a file.
  return read_first_line(path, text) ? leading_number(text).value_or(-1) : -1;
}

}  // namespace

int64_t machine_memory() { return sysconf(_SC_PHYS_PAGES) * sysconf(_SC_PAGESIZE); }

int64_t free_bytes(const MemoryTarget& target) {
  if (target.kind == MemoryKind::kNuma && target.node >= 0) {
    long long free = 0;
    numa_node_size64(target.node, &free);
    return free;
  }
  struct statfs64 status;
  if (target.kind != MemoryKind::kPmem || statfs64(target.path.c_str(), &status) != 0) return -1;
  return static_cast<int64_t>(status.f_bsize) * static_cast<int64_t>(status.f_bavail);
}

int64_t devdax_size(const std::string& path) {
  struct stat status;
  if (stat(path.c_str(), &status) != 0) return -1;
  return S_ISREG(status.st_mode) ? status.st_size : device_size(status);
}

}  // namespace velmo
