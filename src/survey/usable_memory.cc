#include "survey/usable_memory.h"

#include <algorithm>
#include <string>

#include "app/text.h"
#include "platform/cgroup.h"
#include "platform/node_memory.h"
#include "platform/text_file.h"

namespace velmo {
namespace {

// The rest is left to the system: a node that is filled up swaps, or ends processes.
constexpr double kUsableShare = 0.8;

int64_t share_of(int64_t bytes) {
  return static_cast<int64_t>(static_cast<double>(bytes) * kUsableShare);
}

std::string folder_of(int node) {
  return "/sys/devices/system/node/node" + std::to_string(node) + '/';
}

std::optional<int64_t> free_in_pool(int node, int64_t page) {
  const std::string path =
      folder_of(node) + "hugepages/hugepages-" + std::to_string(page / 1024) + "kB/free_hugepages";
  std::string text;
  if (!read_first_line(path, text)) return std::nullopt;
  const std::optional<long> count = leading_number(text);
  constexpr int64_t kMost = int64_t{1} << 60;  // more is damage
  return count ? std::optional(std::clamp<int64_t>(*count, 0, kMost / page) * page) : std::nullopt;
}

}  // namespace

int64_t page_bytes(PageSize pages) {
  if (pages == PageSize::k1G) return int64_t{1} << 30;
  return pages == PageSize::k4K ? 4096 : int64_t{1} << 21;
}

bool is_pool(PageSize pages) { return pages == PageSize::k2M || pages == PageSize::k1G; }

std::optional<int64_t> usable_bytes(const MemoryTarget& memory, PageSize pages) {
  if (memory.kind == MemoryKind::kNuma && is_pool(pages)) {
    return free_in_pool(memory.node, page_bytes(pages));
  }
  int64_t bytes = -1;
  if (memory.kind == MemoryKind::kDevdax) {
    bytes = devdax_size(memory.path);
    return bytes < 0 ? std::nullopt : std::optional(bytes);
  }
  if (memory.kind == MemoryKind::kNuma) {
    const auto node = read_node_memory(folder_of(memory.node) + "meminfo");
    if (node) bytes = node->available_kb * 1024;
  } else {
    bytes = free_bytes(memory);
  }
  return bytes < 0 ? std::nullopt : std::optional(share_of(bytes));
}

std::optional<int64_t> usable_in_groups() {
  const std::optional<int64_t> left = memory_left();
  return left ? std::optional(share_of(*left)) : std::nullopt;
}

}  // namespace velmo
