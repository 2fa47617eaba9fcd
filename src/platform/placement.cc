#include "platform/placement.h"

#include <numaif.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cstring>
#include <fstream>
#include <map>
#include <sstream>
#include <vector>

#include "platform/text_file.h"

namespace velmo {
namespace {

constexpr int64_t kPages = 1024;
constexpr int64_t kHugePage = 2 << 20;

// Size of the pages that most of the mapping around `data` has, from /proc/self/smaps (proc(5)).
int64_t page_size_at(const void* data) {
  const auto address = reinterpret_cast<uintptr_t>(data);
  std::ifstream in("/proc/self/smaps");
  std::string line;
  bool here = false;
  int64_t page = 0;  // kB
  int64_t rss = 0;   // kB
  while (read_line(in, line)) {
    uintptr_t begin = 0;
    uintptr_t end = 0;
    const char* const line_end = line.data() + line.size();
    const char* const dash = std::from_chars(line.data(), line_end, begin, 16).ptr;
    if (dash != line_end && *dash == '-') {
      std::from_chars(dash + 1, line_end, end, 16);
      if (here) break;
      here = begin <= address && address < end;
      continue;
    }
    if (!here) continue;
    std::istringstream text(line);
    std::string name;
    int64_t value = 0;
    text >> name >> value;
    if (name == "KernelPageSize:") page = value;
    if (name == "Rss:") rss = value;
    for (const char* huge : {"AnonHugePages:", "ShmemPmdMapped:", "FilePmdMapped:"}) {
      if (name == huge && rss > 0 && 2 * value > rss) return kHugePage;
    }
  }
  return page * 1024;
}

}  // namespace

Placement find_placement(const void* data, int64_t size, int node, bool page_size) {
  Placement placement;
  const long page = sysconf(_SC_PAGESIZE);
  const int64_t pages = std::min(kPages, std::max<int64_t>(size / page, 1));
  const int64_t step = size / pages / page * page;
  std::vector<void*> addresses;
  for (int64_t i = 0; i < pages; ++i) {
    addresses.push_back(static_cast<char*>(const_cast<void*>(data)) + i * step);
  }
  std::vector<int> nodes(pages, -1);
  if (move_pages(0, addresses.size(), addresses.data(), nullptr, nodes.data(), 0) < 0) {
    placement.reason = std::string("move_pages: ") + std::strerror(errno);
    return placement;
  }
  std::map<int, int64_t> counts;
  for (const int at : nodes) ++counts[at];
  // Pages of device memory that the kernel does not manage are told as errors.
  if (counts.begin()->first < 0 && counts.size() == 1) {
    placement.reason = std::string("move_pages: ") + std::strerror(-counts.begin()->first);
    return placement;
  }
  placement.asked = pages;
  if (node >= 0) {
    placement.on_node = counts[node];
  } else {
    for (const auto& [at, count] : counts) {
      if (at >= 0) placement.on_node = std::max(placement.on_node, count);
    }
  }
  if (page_size) placement.page_size_bytes = page_size_at(data);
  return placement;
}

}  // namespace velmo
