#include "platform/node_memory.h"

#include <algorithm>

#include "app/text.h"
#include "platform/text_file.h"

namespace velmo {

std::optional<NodeMemory> read_node_memory(const std::string& path) {
  std::string text;
  read_text(path, text);
  // What a machine cannot have is damage, which must not overflow where it is reckoned with.
  static constexpr int64_t kMost = int64_t{1} << 50;
  const auto kilobytes = [&text](const char* key) {
    return std::clamp<int64_t>(number_after(text, key).value_or(-1), -1, kMost);
  };
  const int64_t total = kilobytes("MemTotal");
  const int64_t free = kilobytes("MemFree");
  if (total <= 0 || free < 0) return std::nullopt;
  const int64_t cache = kilobytes("FilePages") - std::max<int64_t>(kilobytes("Shmem"), 0);
  return NodeMemory{total, free + std::max<int64_t>(cache, 0)};
}

}  // namespace velmo
