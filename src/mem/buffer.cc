#include "mem/buffer.h"

#include <algorithm>
#include <cstring>
#include <utility>

#include "app/threads.h"

namespace velmo {
namespace {

// Bytes that are zeroed between two reports of it.
constexpr int64_t kZeroStep = int64_t{256} << 20;

void zero(char* data, int64_t size, std::atomic<int64_t>* zeroed) {
  for (int64_t done = 0; done < size; done += kZeroStep) {
    const int64_t step = std::min(kZeroStep, size - done);
    std::memset(data + done, 0, step);
    if (zeroed != nullptr) zeroed->fetch_add(step, std::memory_order_relaxed);
  }
}

}  // namespace

Buffer::Buffer(const MemoryTarget& target, int64_t size, const BufferSpec& spec)
    : kind_(target.kind), size_(size) {
  // Who does without the default pages is told why it fails, too.
  const bool tell_why = spec.pages != PageSize::kSystem;
  switch (kind_) {
    case MemoryKind::kNuma:
      mmap_numa(data_, size, target.node, target.node < 0, spec.pages);
      break;
    case MemoryKind::kDevdax:
      mmap_devdax(data_, size, target.path, tell_why);
      break;
    case MemoryKind::kPmem:
      mmap_pmem(data_, size, target.path, tell_why);
      break;
    case MemoryKind::kPhysical:
      mmap_devmem(data_, target.base, size, true, spec.offset);
      break;
  }
  if (!spec.zero) return;
  if (spec.cpu < 0) {
    zero(bytes(), size, spec.zeroed);
  } else {
    run_pinned({spec.cpu}, [&](size_t) { zero(bytes(), size, spec.zeroed); });
  }
}

Buffer::~Buffer() {
  if (data_ == nullptr) return;
  switch (kind_) {
    case MemoryKind::kNuma:
      munmap_numa(data_, size_);
      break;
    case MemoryKind::kDevdax:
      munmap_devdax(data_, size_);
      break;
    case MemoryKind::kPmem:
      munmap_pmem(data_, size_);
      break;
    case MemoryKind::kPhysical:
      munmap_devmem(data_, size_);
      break;
  }
}

Buffer::Buffer(Buffer&& other) noexcept { *this = std::move(other); }

Buffer& Buffer::operator=(Buffer&& other) noexcept {
  std::swap(kind_, other.kind_);
  std::swap(data_, other.data_);
  std::swap(size_, other.size_);
  return *this;
}

}  // namespace velmo
