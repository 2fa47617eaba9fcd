// Programs of the system that know what the kernel's files do not tell.

#pragma once

#include <string>
#include <vector>

namespace velmo {

// The program `name` in the first folder of `search_path` (folders separated by colons) that has
// it; empty: none has. Folders that are no absolute paths are not searched.
std::string find_tool(const std::string& name, const std::string& search_path);

// What a program wrote on its standard output, or why there is nothing.
struct ToolOutput {
  std::string text;
  std::string failure;  // empty: it ended with status 0
};

// Runs the program at `path` without standard input, its errors unseen, and waits for its end.
// After `limit_ms` milliseconds it is killed. At most 1 MiB of its output is kept.
ToolOutput run_tool(const std::string& path, const std::vector<std::string>& arguments,
                    int limit_ms);

}  // namespace velmo
