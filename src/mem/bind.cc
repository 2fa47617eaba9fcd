#include "mem/bind.h"

#include <numa.h>
#include <numaif.h>

#include "app/failure.h"

namespace velmo {

void bind_to_node(void* addr, long len, int node) {
  bitmask* nodes = numa_allocate_nodemask();
  numa_bitmask_setbit(nodes, node);
  if (mbind(addr, len, MPOL_BIND, nodes->maskp, nodes->size + 1, MPOL_MF_STRICT) < 0) {
    Fatal() << "Failed to allocate memory on " << node << " node\n";
  }
  numa_bitmask_free(nodes);
}

}  // namespace velmo
