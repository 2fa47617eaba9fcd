// Physical memory ranges from the ACPI System Resource Affinity Table (SRAT).

#pragma once

#include <array>
#include <cstdint>
#include <string>
#include <vector>

namespace velmo {

class MemInfo {
 public:
  // One memory range.
  struct mem_list_elem {
    int32_t proximity_domain;
    int32_t logical_node;   // Linux node of the domain; -1 when the boot log does not name it
    uint64_t base_address;  // bytes
    uint64_t length;        // bytes
    std::vector<int> cpu_list;
  };

  // Sets paths and layout; reads nothing.
  MemInfo();

  // Reads the SRAT and the boot log. The firmware's table and the log are not trusted: a table
  // that is cut short or damaged keeps the ranges before the damage, a line that does not parse
  // is skipped. A missing table and a table without ranges are warned about; `parsed` stays false.
  void Parse();

  // Prints every range on standard output.
  void PrintInfo() const;

  std::vector<mem_list_elem> mem_list;  // in the order of the SRAT
  std::vector<int> pxm_to_node;         // index: proximity domain; -1: not named in the boot log
  bool parsed = false;

  // Bytes before the first subtable: the ACPI table header (36) and 12 reserved ones (ACPI 6.4,
  // 5.2.16).
  static constexpr uint64_t header_length = 48;
  // Bytes behind the type and length bytes of a subtable, by type 0..5 (ACPI 6.4, 5.2.16.1-6).
  static constexpr std::array<uint64_t, 6> body_length{14, 38, 22, 16, 10, 30};

  std::string srat_path;
  std::string dmesg_path;
  std::string dmesg_key;

 private:
  void ReadRanges(std::istream& srat);
  void ReadNodes();
};

}  // namespace velmo
