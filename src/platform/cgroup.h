// The control groups (cgroups) of this process, of version 1, 2 or both.

#pragma once

#include <string>
#include <vector>

namespace velmo {

// Folders of the groups through which `controller` ("cpu", "memory", "cpuset") limits this process:
// its own group first, then each one above it, up to where the hierarchy is mounted; a limit of any
// holds. Empty: the controller is not mounted here. `root` stands before /proc and before the
// folders.
std::vector<std::string> cgroup_folders(const std::string& controller,
                                        const std::string& root = {});

}  // namespace velmo
