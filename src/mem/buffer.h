// A buffer of the memory under test, which owns its mapping.

#pragma once

#include <atomic>
#include <cstdint>

#include "mem/mapping.h"
#include "mem/target.h"

namespace velmo {

struct BufferSpec {
  int cpu = -1;  // that touches the pages first; -1: that of the calling thread
  PageSize pages = PageSize::kSystem;  // of anonymous memory
  bool zero = true;    // false: who uses the buffer touches it first, on the right CPU
  int64_t offset = 0;  // behind the start of a physical range, in bytes
  // Raised by the bytes that are zeroed, from time to time; null: nobody watches.
  std::atomic<int64_t>* zeroed = nullptr;
};

// Mapped, bound to its node, first touched and zeroed. A failure ends the program (mem/mapping.h).
class Buffer {
 public:
  Buffer() = default;
  Buffer(const MemoryTarget& target, int64_t size, const BufferSpec& spec = {});
  ~Buffer();
  Buffer(Buffer&& other) noexcept;
  Buffer& operator=(Buffer&& other) noexcept;

  void* data() const { return data_; }
  char* bytes() const { return static_cast<char*>(data_); }
  int64_t size() const { return size_; }

 private:
  MemoryKind kind_ = MemoryKind::kNuma;
  void* data_ = nullptr;
  int64_t size_ = 0;  // in bytes
};

}  // namespace velmo
