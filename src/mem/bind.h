// Which node the pages of a mapping come from.

#pragma once

namespace velmo {

// Binds the `len` bytes mapped at `addr`, none of which was touched, to `node` (mbind, MPOL_BIND):
// their pages come from there or not at all. exit(1) where the kernel refuses, as it does for a
// node that is not there, has no memory, or is forbidden to the process; `tell_why`: its message
// has the kernel's reason.
void bind_to_node(void* addr, long len, int node, bool tell_why);

}  // namespace velmo
