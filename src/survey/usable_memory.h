// How much of a memory the buffers of a survey may take.

#pragma once

#include <cstdint>
#include <optional>

#include "mem/mapping.h"
#include "mem/target.h"

namespace velmo {

// Bytes of a page, the size of which is the unit of a mapping.
int64_t page_bytes(PageSize pages);

// Whether such pages come from a pool of the administrator's.
bool is_pool(PageSize pages);

// Bytes that buffers on such pages may take of `memory`: a share of what is free or page cache, all
// of a device, all that is free in a node's pool. None where nobody tells.
std::optional<int64_t> usable_bytes(const MemoryTarget& memory, PageSize pages);

// The share of what the control groups leave that buffers of all memories together may take. None:
// there is no limit.
std::optional<int64_t> usable_in_groups();

}  // namespace velmo
