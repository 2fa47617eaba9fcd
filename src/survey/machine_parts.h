// The parts of a machine's description (machine.h), by theme, and how they read small files.

#pragma once

#include <string>
#include <vector>

#include "survey/machine.h"

namespace velmo {

// {"value": null, "reason": `reason`}
Json unknown(const std::string& reason);

// The text, or the integer times `scale`, in the file at `path`, without the line's end; or why it
// is not known.
Json text_of(const std::string& path);
Json number_of(const std::string& path, int64_t scale = 1);

// The list of CPUs or nodes in the file at `path`; none where it cannot be read.
std::vector<int> list_of(const std::string& path);

// Names of what is in `folder`, sorted; none where it cannot be read.
std::vector<std::string> names_in(const std::string& folder);

// machine_cpus.cc: members processor, sockets, cores, threads, caches, frequency, idle_states,
// mitigations and prefetchers of `machine`.
void describe_cpus(Json& machine, const MachineSources& from);

// machine_memory.cc: members nodes, memory_modules, huge_pages and numa_balancing.
void describe_memory(Json& machine, const MachineSources& from);

}  // namespace velmo
