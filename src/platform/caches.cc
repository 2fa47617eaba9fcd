#include "platform/caches.h"

#include <algorithm>
#include <set>

#include "app/text.h"
#include "platform/text_file.h"

namespace velmo {
namespace {

// "32K", as the kernel writes it; 0 for anything else, and for more than 1 TiB, which is damage.
int64_t kilobytes_of(const std::string& text) {
  const long kilobytes = leading_number(text).value_or(0);
  constexpr long kMost = 1L << 30;
  const bool plausible = text.ends_with('K') && kilobytes > 0 && kilobytes <= kMost;
  return plausible ? int64_t{kilobytes} << 10 : 0;
}

// The cache that a folder describes; its size is 0 where that is not known.
Cache read_cache(const std::string& folder) {
  Cache cache{};
  std::string text;
  if (!read_first_line(folder + "/level", text)) return cache;
  cache.level = static_cast<int>(leading_number(text).value_or(0));
  if (!read_first_line(folder + "/shared_cpu_list", text) || !parse_list(text, cache.cpus).empty())
    return cache;
  if (!read_first_line(folder + "/type", cache.type)) return cache;
  if (read_first_line(folder + "/size", text)) cache.size_bytes = kilobytes_of(text);
  return cache;
}

bool has(const std::vector<int>& cpus, int cpu) { return std::ranges::binary_search(cpus, cpu); }

}  // namespace

void Caches::Read(const std::vector<int>& cpus) {
  list.clear();
  for (const int cpu : cpus) {
    std::string ignored;
    const std::string format = numbered_path(folder_fmt, cpu);
    for (int index = 0;; ++index) {
      const std::string folder = numbered_path(format, index);
      if (!read_first_line(folder + "/level", ignored)) break;
      Cache cache = read_cache(folder);
      const bool known = std::ranges::any_of(list, [&](const Cache& other) {
        return other.level == cache.level && other.type == cache.type && has(other.cpus, cpu);
      });
      if (cache.size_bytes > 0 && has(cache.cpus, cpu) && !known) list.push_back(std::move(cache));
    }
  }
}

int64_t Caches::LastLevelBytes(const std::vector<int>& cpus) const {
  std::set<const Cache*> last_level;
  for (const int cpu : cpus) {
    const Cache* last = nullptr;
    for (const Cache& cache : list) {
      if (cache.type == "Instruction" || !has(cache.cpus, cpu)) continue;
      if (last == nullptr || cache.level > last->level) last = &cache;
    }
    if (last != nullptr) last_level.insert(last);
  }
  int64_t bytes = 0;
  for (const Cache* cache : last_level) bytes += cache->size_bytes;
  return bytes;
}

}  // namespace velmo
