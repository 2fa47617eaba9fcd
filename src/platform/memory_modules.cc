#include "platform/memory_modules.h"

#include <cerrno>
#include <cstring>
#include <sstream>
#include <string_view>

#include "app/text.h"
#include "platform/text_file.h"
#include "platform/tool.h"

namespace velmo {
namespace {

constexpr uint8_t kMemoryDevice = 17;

// Names of the memory types that servers have had (SMBIOS 3.7, 7.18.2).
constexpr struct {
  uint8_t code;
  const char* name;
} kTypes[] = {
    {0x03, "DRAM"},
    {0x07, "RAM"},
    {0x0F, "SDRAM"},
    {0x12, "DDR"},
    {0x13, "DDR2"},
    {0x14, "DDR2 FB-DIMM"},
    {0x18, "DDR3"},
    {0x1A, "DDR4"},
    {0x1B, "LPDDR"},
    {0x1C, "LPDDR2"},
    {0x1D, "LPDDR3"},
    {0x1E, "LPDDR4"},
    {0x1F, "Logical non-volatile device"},
    {0x20, "HBM"},
    {0x21, "HBM2"},
    {0x22, "DDR5"},
    {0x23, "LPDDR5"},
    {0x24, "HBM3"},
};

std::string type_name(uint8_t code) {
  for (const auto& type : kTypes) {
    if (type.code == code) return type.name;
  }
  return {};
}

// "16 GB", "16384 MB", in binary units; 0 for "No Module Installed" and the like.
int64_t size_of(const std::string& text) {
  constexpr std::string_view kUnits = "kMGT";
  const size_t unit = kUnits.find(text.substr(text.find(' ') + 1, 1));
  const long number = leading_number(text).value_or(0);
  constexpr long kMost = 1L << 22;
  if (unit == std::string_view::npos || number <= 0 || number > kMost) return 0;
  return int64_t{number} << (10 * (unit + 1));
}

// One structure of the table: its formatted part, and the strings behind it.
struct Structure {
  std::string_view fields;
  std::vector<std::string_view> strings;

  // The `bytes` bytes at `offset`, little-endian; 0 behind the end: older tables are shorter.
  uint64_t Number(size_t offset, size_t bytes) const {
    uint64_t value = 0;
    if (offset + bytes <= fields.size()) std::memcpy(&value, fields.data() + offset, bytes);
    return value;
  }
  // The string whose number, counted from 1, stands at `offset`.
  std::string Text(size_t offset) const {
    const size_t number = Number(offset, 1);
    return number == 0 || number > strings.size() ? std::string()
                                                  : std::string(strings[number - 1]);
  }
};

// A speed, with its extended field where the first is full (SMBIOS 3.7, 7.18.4).
int64_t speed_of(const Structure& device, size_t offset, size_t extended) {
  const uint64_t speed = device.Number(offset, 2);
  return static_cast<int64_t>(speed == 0xFFFF ? device.Number(extended, 4) : speed);
}

// Offsets of SMBIOS 3.7, 7.18.
MemoryModule module_of(const Structure& device) {
  MemoryModule module;
  const uint64_t size = device.Number(0x0C, 2);
  if (size == 0x7FFF) {
    module.size_bytes = static_cast<int64_t>(device.Number(0x1C, 4) & 0x7FFFFFFF) << 20;
  } else if (size != 0xFFFF) {
    module.size_bytes = static_cast<int64_t>(size & 0x7FFF) << ((size & 0x8000) != 0 ? 10 : 20);
  }
  module.locator = device.Text(0x10);
  module.type = type_name(static_cast<uint8_t>(device.Number(0x12, 1)));
  module.speed_mt_s = speed_of(device, 0x15, 0x54);
  module.configured_speed_mt_s = speed_of(device, 0x20, 0x58);
  return module;
}

}  // namespace

std::vector<MemoryModule> parse_dmidecode(const std::string& text) {
  std::vector<MemoryModule> modules;
  std::istringstream lines(text);
  bool inside = false;
  const auto drop_empty = [&] {
    if (!modules.empty() && modules.back().size_bytes == 0) modules.pop_back();
  };
  for (std::string line; read_line(lines, line);) {
    if (!line.starts_with('\t')) {
      inside = line == "Memory Device";
      if (inside) {
        drop_empty();
        modules.emplace_back();
      }
      continue;
    }
    const size_t colon = line.find(": ");
    if (!inside || colon == std::string::npos) continue;
    const std::string name = line.substr(1, colon - 1);
    const std::string value = line.substr(colon + 2);
    MemoryModule& module = modules.back();
    if (name == "Locator") module.locator = value;
    if (name == "Size") module.size_bytes = size_of(value);
    if (name == "Type" && value != "Unknown") module.type = value;
    if (name == "Speed") module.speed_mt_s = leading_number(value).value_or(0);
    // The name was another one before SMBIOS 3.2.
    if (name == "Configured Memory Speed" || name == "Configured Clock Speed") {
      module.configured_speed_mt_s = leading_number(value).value_or(0);
    }
  }
  drop_empty();
  return modules;
}

std::vector<MemoryModule> parse_smbios(const std::string& table) {
  constexpr size_t kHeader = 4;  // type, length of the fields, two bytes of handle
  std::vector<MemoryModule> modules;
  std::string_view rest = table;
  while (rest.size() >= kHeader) {
    const auto length = static_cast<uint8_t>(rest[1]);
    if (length < kHeader || length > rest.size()) break;
    Structure structure{rest.substr(0, length), {}};
    const auto type = static_cast<uint8_t>(rest[0]);
    rest.remove_prefix(length);
    // Strings end with a zero byte, and the last one with two; none at all are two zero bytes.
    size_t end = rest.find('\0');
    if (end == 0) rest.remove_prefix(1);
    while (end != 0 && end != std::string_view::npos) {
      structure.strings.push_back(rest.substr(0, end));
      rest.remove_prefix(end + 1);
      end = rest.find('\0');
    }
    if (end == std::string_view::npos || rest.empty()) break;
    rest.remove_prefix(1);
    if (type != kMemoryDevice) continue;
    if (const MemoryModule module = module_of(structure); module.size_bytes > 0) {
      modules.push_back(module);
    }
  }
  return modules;
}

MemoryModules read_memory_modules(const std::string& search_path, const std::string& root) {
  constexpr int kLimitMs = 2000;
  MemoryModules modules;
  const std::string tool = find_tool("dmidecode", search_path);
  if (tool.empty()) {
    modules.reason = "dmidecode is not installed";
  } else {
    const ToolOutput output = run_tool(tool, {"-t", "17"}, kLimitMs);
    modules.list = parse_dmidecode(output.text);
    modules.reason = output.failure.empty() ? tool + " names no module" : output.failure;
  }
  if (!modules.list.empty()) return {modules.list, ""};

  const std::string path = root + "/sys/firmware/dmi/tables/DMI";
  std::string table;
  if (!read_text(path, table)) {
    modules.reason += "; " + path + ": " + std::strerror(errno);
    return modules;
  }
  modules.list = parse_smbios(table);
  modules.reason = modules.list.empty() ? path + " names no module" : "";
  return modules;
}

}  // namespace velmo
