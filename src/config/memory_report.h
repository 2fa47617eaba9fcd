// Lines that the set-up on the console and the headers of the log files have in common.

#pragma once

#include <ostream>

#include "config/configurator.h"

namespace velmo {

inline constexpr double kBytesPerMiB = 1048576.0;

// Writes, without a line end, which memory target number `target` is: its node, its path, or behind
// `base_label` its physical address in hexadecimal. The stream is left in decimal.
void write_memory_line(std::ostream& out, const Configurator& config, int target,
                       const char* base_label);

// Writes "memory size: ", "chunk size : " and "stride size: ", a line each. `size` and `stride` in
// bytes.
void write_size_lines(std::ostream& out, const Configurator& config, int64_t size, int stride);

}  // namespace velmo
