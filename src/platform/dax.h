// Device-DAX devices: memory that is mapped from a character device.

#pragma once

#include <cstdint>
#include <string>

namespace velmo {

// Bytes that the start and the length of a mapping of the device at `path` are multiples of; 0: it
// is no such device, or the kernel does not tell. `devices` is the kernel's folder of character
// devices by number.
int64_t dax_alignment(const std::string& path, const std::string& devices = "/sys/dev/char");

}  // namespace velmo
