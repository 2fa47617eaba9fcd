#include "mem/mapping.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <string>
#include <vector>

#include "app/failure.h"
#include "mem/bind.h"
#include "mem/target.h"

namespace velmo {
namespace {

// A descriptor that is closed on the way out; a mapping does not need it.
class Descriptor {
 public:
  explicit Descriptor(int fd) : fd_(fd) {}
  ~Descriptor() {
    if (fd_ >= 0) close(fd_);
  }
  Descriptor(const Descriptor&) = delete;
  Descriptor& operator=(const Descriptor&) = delete;
  int get() const { return fd_; }

 private:
  int fd_;
};

// Descriptor of a new file in `dir` without a name, or -1. Where the file system cannot make one
// without, it has one for a moment.
int make_unnamed_file(const std::string& dir) {
  int fd = open(dir.c_str(), O_TMPFILE | O_RDWR | O_CLOEXEC, S_IRUSR | S_IWUSR);
  if (fd >= 0) return fd;
  std::string name = dir;
  if (name.empty() || name.back() != '/') name += '/';
  name += "velmo_XXXXXX";
  fd = mkstemp(name.data());
  if (fd >= 0) unlink(name.c_str());
  return fd;
}

// Whether a regular file holds anything but zeros, or cannot be read to its end. Holes are skipped.
bool holds_data(int fd) {
  std::vector<char> block(1 << 20);
  for (off_t at = lseek(fd, 0, SEEK_DATA); at >= 0;) {
    const ssize_t n = pread(fd, block.data(), block.size(), at);
    if (n == 0) return false;
    if (n < 0 || std::any_of(block.begin(), block.begin() + n, [](char c) { return c != 0; })) {
      return true;
    }
    at = lseek(fd, at + n, SEEK_DATA);
  }
  return errno != ENXIO;  // no data behind the offset
}

// The kernel's reason, `error`, behind a message, where it is wanted.
std::string reason(bool wanted, const std::string& path, int error) {
  return wanted ? ' ' + path + ": " + std::strerror(error) : "";
}

// The first `len` bytes of `file`, whose blocks are allocated before where `fill` is set: holes of
// a file on a full file system would fault at the first touch.
void* map_file(const Descriptor& file, long len, const std::string& path, bool fill,
               bool tell_why) {
  if (const int error = fill ? posix_fallocate(file.get(), 0, len) : 0; error != 0) {
    Fatal() << "Failed to allocate memory. There is not enough free memory"
            << reason(tell_why, path, error) << '\n';
  }
  void* addr = mmap(nullptr, len, PROT_READ | PROT_WRITE, MAP_SHARED, file.get(), 0);
  if (addr == MAP_FAILED) {
    Fatal() << "Failed to allocate memory." << reason(tell_why, path, errno) << '\n';
  }
  return addr;
}

// Flags of mmap for pages of a pool of huge pages (log2 of their size from bit 26 on).
int pool_flags(PageSize pages) {
  switch (pages) {
    case PageSize::k2M:
      return MAP_HUGETLB | 21 << MAP_HUGE_SHIFT;
    case PageSize::k1G:
      return MAP_HUGETLB | 30 << MAP_HUGE_SHIFT;
    default:
      return 0;
  }
}

void unmap(void* addr, long len, const char* failure) {
  if (munmap(addr, len) != 0) Warn() << failure;
}

}  // namespace

void touch_pages(void* addr, long len) {
#ifdef MADV_POPULATE_WRITE
  if (madvise(addr, len, MADV_POPULATE_WRITE) == 0) return;
#endif
  constexpr long kPage = 4096;
  auto* const bytes = static_cast<volatile char*>(addr);
  for (long at = 0; at < len; at += kPage) bytes[at] = 0;
}

void mmap_numa(void*& addr, long len, int node, bool no_bind, PageSize pages) {
  addr = mmap(nullptr, len, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS | pool_flags(pages),
              -1, 0);
  if (addr == MAP_FAILED) Fatal() << "Failed to allocate memory\n";
  // Where the kernel has no transparent huge pages, it has nothing to be advised of either.
  if (pages == PageSize::k4K) madvise(addr, len, MADV_NOHUGEPAGE);
  if (pages == PageSize::kThp) madvise(addr, len, MADV_HUGEPAGE);
  // Who does without the default pages is told why binding fails, too.
  if (!no_bind) bind_to_node(addr, len, node, pages != PageSize::kSystem);
}

void mmap_devmem(void*& addr, long base, long len, bool sync, long offset) {
  const Descriptor file(open("/dev/mem", sync ? O_RDWR | O_SYNC : O_RDWR));
  if (file.get() < 0) {
    Fatal() << "Failed to allocate memory. Check kernel config (CONFIG_STRICT_DEVMEM=n)\n";
  }
  addr = mmap(nullptr, len, PROT_READ | PROT_WRITE, MAP_SHARED, file.get(), base + offset);
  if (addr == MAP_FAILED) {
    Fatal() << "Failed to allocate memory. Check base address and kernel config "
               "(CONFIG_STRICT_DEVMEM=n)\n";
  }
}

void mmap_devdax(void*& addr, long len, const std::string& path, bool tell_why) {
  struct stat status {};
  const bool exists = stat(path.c_str(), &status) == 0;
  const int64_t size = devdax_size(path);
  // Before it is opened: that alone has an effect on some devices (a watchdog, a tape).
  if (exists && size < 0) {
    Fatal() << "Failed to allocate memory. Check path or dax device.\n"
            << "              " << path << " is neither a dax device nor a file.\n";
  }
  // What lies beyond its end would map, and fault at the first touch.
  if (exists && size < len) {
    Fatal() << "Failed to allocate memory. " << path << " holds " << size << " of " << len
            << " Byte. Check path or dax device, or set a smaller size with -m\n";
  }
  const Descriptor file(open(path.c_str(), O_RDWR));
  if (file.get() < 0) {
    Fatal() << "Failed to allocate memory. Check path or dax device."
            << reason(tell_why, path, errno) << '\n';
  }
  if (S_ISREG(status.st_mode) && holds_data(file.get())) {
    Fatal() << "Failed to allocate memory. " << path << " is a file that holds data, which would "
            << "be overwritten. Name a dax device, or a file of zeros (truncate one that an ended "
               "run has left)\n";
  }
  addr = map_file(file, len, path, S_ISREG(status.st_mode), tell_why);
}

void mmap_pmem(void*& addr, long len, const std::string& dir, bool tell_why) {
  const Descriptor file(make_unnamed_file(dir));
  if (file.get() < 0) {
    Fatal() << "Failed to allocate memory. Check file path or pmem." << reason(tell_why, dir, errno)
            << '\n';
  }
  addr = map_file(file, len, dir, true, tell_why);
}

void munmap_numa(void*& addr, long len) { unmap(addr, len, "Failed to free memory\n"); }

void munmap_devmem(void*& addr, long len) { unmap(addr, len, "Failed to free memory.\n"); }

void munmap_devdax(void*& addr, long len) {
  // A file is left as it was found, also where its file system cannot punch holes into it. Devices,
  // of which the kernel says ENODEV, are left as they are.
  if (madvise(addr, len, MADV_REMOVE) != 0 && errno != ENODEV) std::memset(addr, 0, len);
  unmap(addr, len, "Failed to free memory.\n");
}

void munmap_pmem(void*& addr, long len) { unmap(addr, len, "Failed to free memory.\n"); }

}  // namespace velmo
