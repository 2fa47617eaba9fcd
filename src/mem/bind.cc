#include "mem/bind.h"

#include <numa.h>
#include <numaif.h>

#include <cerrno>
#include <cstring>
#include <string>

#include "app/failure.h"

namespace velmo {

void bind_to_node(void* addr, long len, int node, bool tell_why) {
  bitmask* nodes = numa_allocate_nodemask();
  numa_bitmask_setbit(nodes, node);
  const bool bound =
      mbind(addr, len, MPOL_BIND, nodes->maskp, nodes->size + 1, MPOL_MF_STRICT) == 0;
  const int reason = errno;
  numa_bitmask_free(nodes);
  if (bound) return;
  std::string why;
  if (tell_why) why = std::string(": mbind: ") + std::strerror(reason);
  if (tell_why && reason == EPERM) why += ". A container needs the capability SYS_NICE";
  Fatal() << "Failed to allocate memory on " << node << " node" << why << '\n';
}

}  // namespace velmo
