// The control groups (cgroups) of this process, of version 1, 2 or both.

#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace velmo {

// Folders of the groups through which `controller` ("cpu", "memory", "cpuset") limits this process:
// its own group first, then each one above it, up to where the hierarchy is mounted; a limit of any
// holds. Empty: the controller is not mounted here. `root` stands before /proc and before the
// folders.
std::vector<std::string> cgroup_folders(const std::string& controller,
                                        const std::string& root = {});

// Bytes that the group in `folder` ("memory") may take; -1: it has no limit.
int64_t memory_limit(const std::string& folder);

// CPUs' worth of time that the group in `folder` ("cpu") may take; -1: it has no limit.
double cpu_quota(const std::string& folder);

// Bytes that this process can still take without meeting such a limit, at which the kernel ends
// processes; page cache counts as free. None: there is no limit.
std::optional<int64_t> memory_left(const std::string& root = {});

}  // namespace velmo
