// The memory under test: mapped from one of four kinds of memory, and released.
//
// Every mapping is readable and writable. None asks for huge pages or is faulted in here: the first
// touch belongs to the benchmark. A mapping that fails is reported and ends the program with
// exit(1); a release that fails is a warning.

#pragma once

#include <cstdint>
#include <string>

namespace velmo {

// Anonymous memory of `len` bytes, bound to `node` (mbind, MPOL_BIND) unless `no_bind`: then its
// pages follow the policy of the thread that touches them first.
void mmap_numa(void*& addr, long len, int node, bool no_bind);

// `len` bytes of physical memory at `base + offset` (/dev/mem), uncached with `sync` where the
// architecture can. An address that is not page-aligned is refused by the kernel.
void mmap_devmem(void*& addr, long base, long len, bool sync, long offset);

// Bytes that the device-DAX device, or the file in its place, `path` holds; -1 when nothing tells.
int64_t devdax_size(const std::string& path);

// The first `len` bytes of the device-DAX device, or the file in its place, `path`. Nothing else is
// opened.
void mmap_devdax(void*& addr, long len, const std::string& path);

// A new file of `len` bytes in the directory `dir`. Its blocks are allocated at once, so a file
// system without room is found here and not by a fault while measuring; it is unlinked at once, so
// nothing is left behind.
void mmap_pmem(void*& addr, long len, const std::string& dir);

// Release what the function of the same kind has mapped. The pointer stays as it is.
void munmap_numa(void*& addr, long len);
void munmap_devmem(void*& addr, long len);
void munmap_devdax(void*& addr, long len);
void munmap_pmem(void*& addr, long len);

}  // namespace velmo
