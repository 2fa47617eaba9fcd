// The memory under test: mapped from one of four kinds of memory, and released.
//
// Every mapping is readable and writable, and none is faulted in here: the first touch belongs to
// the buffer (mem/buffer.h). A mapping that fails is reported and ends the program with
// exit(1); a release that fails is a warning.

#pragma once

#include <cstdint>
#include <string>

namespace velmo {

// Pages of anonymous memory.
enum class PageSize {
  kSystem,  // what the machine gives without being asked
  k4K,      // base pages, also where transparent huge pages are set to always
  kThp,     // transparent huge pages, as far as the kernel has them
  k2M,      // of the pools of huge pages (hugetlbfs); the length is a multiple of them
  k1G,
};

// Anonymous memory of `len` bytes, bound to `node` (mem/bind.h) unless `no_bind`: then its pages
// follow the policy of the thread that touches them first.
void mmap_numa(void*& addr, long len, int node, bool no_bind, PageSize pages = PageSize::kSystem);

// `len` bytes of physical memory at `base + offset` (/dev/mem), uncached with `sync` where the
// architecture can. An address that is not page-aligned is refused by the kernel.
void mmap_devmem(void*& addr, long base, long len, bool sync, long offset);

// The first `len` bytes of the device-DAX device, or the file in its place, `path`. Nothing else is
// opened. A failure is told with the kernel's reason where the caller wants it (`tell_why`).
void mmap_devdax(void*& addr, long len, const std::string& path, bool tell_why = false);

// A new file of `len` bytes in the directory `dir`. Its blocks are allocated at once, so a file
// system without room is found here and not by a fault while measuring; it is unlinked at once, so
// nothing is left behind. `tell_why` as above.
void mmap_pmem(void*& addr, long len, const std::string& dir, bool tell_why = false);

// First touch of the pages of `len` bytes at `addr`, where one begins, by the calling thread: their
// memory is there then, and zero. At once, in about half the time of a touch of each, where the
// kernel can (since Linux 5.14).
void touch_pages(void* addr, long len);

// Release what the function of the same kind has mapped. The pointer stays as it is.
void munmap_numa(void*& addr, long len);
void munmap_devmem(void*& addr, long len);
void munmap_devdax(void*& addr, long len);
void munmap_pmem(void*& addr, long len);

}  // namespace velmo
