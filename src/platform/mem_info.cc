#include "platform/mem_info.h"

#include <algorithm>
#include <cstring>
#include <fstream>
#include <iostream>
#include <sstream>

#include "app/console.h"
#include "platform/text_file.h"

namespace velmo {
namespace {

constexpr uint8_t kMemoryAffinity = 1;

// Beyond any machine; a larger value is damage, which must not decide how much is allocated.
constexpr int32_t kMaxDomain = 65535;
constexpr size_t kMaxRanges = 4096;

// Memory Affinity structure behind its type and length bytes (ACPI 6.4, 5.2.16.2).
struct __attribute__((packed)) MemoryAffinity {
  int32_t proximity_domain;
  uint16_t reserved;
  uint64_t base_address;
  uint64_t length;
};

}  // namespace

MemInfo::MemInfo()
    : srat_path("/sys/firmware/acpi/tables/SRAT"),
      dmesg_path("/var/log/dmesg"),
      dmesg_key("ACPI: SRAT:") {}

void MemInfo::Parse() {
  std::ifstream srat(srat_path, std::ios::binary);
  srat.peek();
  if (!srat.is_open() || srat.bad()) {
    Warn() << "Failed to open SRAT. BIOS should publish SRAT to OS\n";
    return;
  }
  ReadRanges(srat);
  if (mem_list.empty()) {
    Warn() << "Failed to get memory information from SRAT\n";
    return;
  }
  parsed = true;
  ReadNodes();
}

void MemInfo::ReadRanges(std::istream& srat) {
  int32_t max_domain = 0;
  std::array<char, 256> body;
  srat.clear();
  srat.seekg(static_cast<std::streamoff>(header_length));
  uint8_t header[2];  // type, length
  while (mem_list.size() < kMaxRanges && srat.read(reinterpret_cast<char*>(header), 2)) {
    const auto [type, length] = header;
    if (type >= body_length.size()) {
      if (length < sizeof header) break;
      srat.ignore(length - static_cast<std::streamsize>(sizeof header));
      continue;
    }
    // The length byte of a known type is not consulted: some firmware gets it wrong.
    if (!srat.read(body.data(), static_cast<std::streamsize>(body_length[type]))) break;
    if (type != kMemoryAffinity) continue;

    MemoryAffinity range;
    std::memcpy(&range, body.data(), sizeof range);
    if (range.proximity_domain >= 0 && range.proximity_domain <= kMaxDomain) {
      max_domain = std::max(max_domain, int32_t{range.proximity_domain});
    }
    // Base 0 is low memory of the first node, or a placeholder that the firmware left all zero.
    if (range.base_address == 0) continue;
    mem_list.push_back({range.proximity_domain, -1, range.base_address, range.length, {}});
  }
  pxm_to_node.assign(static_cast<size_t>(max_domain) + 1, -1);
}

// Boot lines read "ACPI: SRAT: Node 1 PXM 3 [mem 0x...]"; the last one for a domain counts.
void MemInfo::ReadNodes() {
  std::ifstream dmesg(dmesg_path);
  std::string line;
  while (read_line(dmesg, line)) {
    const size_t key = line.find(dmesg_key);
    if (key == std::string::npos || key + dmesg_key.size() >= line.size()) continue;
    std::istringstream text(line.substr(key + dmesg_key.size() + 1));
    std::string word;
    int node = -1;
    int domain = -1;
    if (!(text >> word >> node >> word >> domain)) continue;
    if (domain < 0 || static_cast<size_t>(domain) >= pxm_to_node.size()) continue;
    pxm_to_node[domain] = node;
  }
  for (mem_list_elem& range : mem_list) {
    const auto domain = static_cast<size_t>(range.proximity_domain);
    if (domain < pxm_to_node.size()) range.logical_node = pxm_to_node[domain];
  }
}

void MemInfo::PrintInfo() const {
  std::cout << "SRAT Table Information\n" << kSeparator;
  for (size_t i = 0; i < mem_list.size(); ++i) {
    const mem_list_elem& range = mem_list[i];
    std::cout << "Index           : " << i << '\n'
              << "Proximity Domain: " << range.proximity_domain << '\n'
              << "Logical Node    : " << range.logical_node << '\n'
              << std::hex << "Base Address    : " << range.base_address << '\n'
              << "Address Length  : " << range.length << std::dec << kSeparator;
  }
}

}  // namespace velmo
