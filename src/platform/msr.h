// Model-specific registers, read through the kernel's msr driver.

#pragma once

#include <cstdint>
#include <optional>
#include <string>

namespace velmo {

// The register at `address` of the CPU whose device is at `path`. None, with errno set, where there
// is no such device or register or it may not be read.
std::optional<uint64_t> read_msr(const std::string& path, uint32_t address);

}  // namespace velmo
