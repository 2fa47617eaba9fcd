#include "platform/mem_info.h"

#include <gtest/gtest.h>

#include <climits>

#include "support/fake_machine.h"

namespace velmo_test {
namespace {

// A subtable of `size` bytes whose body would read as nonsense if it were parsed.
std::string Other(uint8_t type, uint8_t length_byte, size_t size) {
  return LittleEndian(type, 1) + LittleEndian(length_byte, 1) + std::string(size - 2, '\1');
}

TEST(MemInfo, ReadsWholeAndDamagedTablesAndBootLogs) {
  const std::string two = Range(1) + Range(3);
  const std::string key = "ACPI: SRAT: ";
  const struct {
    std::string table;  // behind the header
    const char* out;    // "domain/node " of each range, then the size of the table of domains
    std::string log = {};
    std::string err = {};
  } rows[] = {
      {Range(3) + Range(1), "3/-1 1/-1 4"},
      {Range(5, 0) + Range(1), "1/-1 6"},  // base 0 is left out, its domain counts
      {"", "1", "", Warning("Failed to get memory information from SRAT")},
      // The length byte of types 0 to 5 does not count, that of the others does.
      {Other(0, 99, 16) + Other(2, 0, 24) + Other(3, 1, 18) + Other(4, 255, 12) + Other(5, 2, 32) +
           Range(1, 1, 1, 200) + Range(2, 1, 1, 0),
       "1/-1 2/-1 3"},
      {Other(6, 9, 9) + Other(127, 2, 2) + Other(255, 255, 255) + Range(1), "1/-1 2"},
      {Range(1) + Other(6, 0, 8) + Range(2), "1/-1 2"},
      {Range(1) + Range(2).substr(0, 39), "1/-1 2"},
      {Range(-1) + Range(INT_MAX) + Range(2), "-1/-1 2147483647/-1 2/-1 3"},
      {two, "1/5 3/0 4",
       "[0.0] " + key + "Node 4 PXM 1 [mem 0x0-0xf]\n" + key + "Node 0 PXM 3\n" + key +
           "Node 5 PXM 1"},
      {two, "1/-1 3/2 4",
       key + "PXM 1 -> Node 0\n" + key + "\n" + key + "Node 7 PXM\n" + key + "Node 2 PXM 3"},
      {two, "1/-1 3/-1 4",
       key + "Node 99999999999 PXM 1\n" + key + "Node 1 PXM -1\n" + key + "Node 1 PXM 4\n"},
      {two, "1/-1 3/6 4", std::string(3'000'000, 'x') + "\n" + key + "Node 6 PXM 3\n"},
  };
  const FakeMachine machine;
  const auto parse = [&] {
    velmo::Configurator config;
    machine.Install(config);
    config.mem_info.Parse();
    for (const auto& range : config.mem_info.mem_list) {
      std::cout << range.proximity_domain << '/' << range.logical_node << ' ';
    }
    std::cout << config.mem_info.pxm_to_node.size();
  };
  for (const auto& row : rows) {
    machine.files.Write("SRAT", kSratHeader + row.table);
    machine.files.Write("dmesg", row.log);
    EXPECT_EQ(RunForked(parse), (Outcome{0, row.out, row.err})) << "row " << &row - rows;
  }
  std::filesystem::remove(machine.files.path() + "/SRAT");
  EXPECT_EQ(RunForked(parse).err, Warning("Failed to open SRAT. BIOS should publish SRAT to OS"));
}

}  // namespace
}  // namespace velmo_test
