// Where the pages of a buffer are.

#pragma once

#include <cstdint>
#include <string>

namespace velmo {

struct Placement {
  int64_t asked = 0;            // pages, spread evenly over the buffer
  int64_t on_node = 0;          // of them, on the node where they belong
  int64_t page_size_bytes = 0;  // that the most of the buffer is mapped in; 0: not known
  std::string reason;           // why nothing is known; empty: it is

  double share() const {
    return asked > 0 ? static_cast<double>(on_node) / static_cast<double>(asked) : 0;
  }
  // Counts the pages of another buffer, too; the page size stays.
  void Add(const Placement& other) {
    asked += other.asked;
    on_node += other.on_node;
    if (reason.empty()) reason = other.reason;
  }
};

// Asks the kernel where the pages of `size` bytes at `data`, which were touched, are: 1,024 of
// them, or all where there are fewer. `node` -1: whichever node most of them are on counts as
// theirs. The size of the pages, which takes a walk over all mappings, is looked for on request.
Placement find_placement(const void* data, int64_t size, int node, bool page_size = true);

}  // namespace velmo
