#include "platform/caches.h"

#include <gtest/gtest.h>

#include "app/text.h"
#include "support/subprocess.h"

namespace velmo {
namespace {

// CPUs 0 and 1 are hyper-threads of a core, 2 shares the last level with them; CPU 3 has one of its
// own, CPU 4 is offline, and what is told of CPU 5 is damaged.
TEST(Caches, AreReadOnceAndSummedByTheCpusThatUseThem) {
  const velmo_test::TempDir dir;
  const struct {
    int cpu, index;
    const char *level, *type, *size, *cpus;
  } rows[] = {
      {0, 0, "1", "Data", "48K", "0-1"},      {0, 1, "1", "Instruction", "32K", "0-1"},
      {0, 2, "3", "Unified", "1024K", "0-2"}, {1, 0, "1", "Data", "48K", "0-1"},
      {1, 1, "3", "Unified", "1024K", "0-2"}, {2, 0, "3", "Unified", "1024K", "0-2"},
      {3, 0, "3", "Unified", "2048K", "3"},   {3, 1, "4", "Instruction", "9K", "3"},
      {5, 0, "3", "Unified", "", "5"},        {5, 1, "", "Unified", "1K", "x"},
      {5, 2, "2", "Unified", "8K", "5"},
  };
  for (const auto& row : rows) {
    const std::string at = std::to_string(row.cpu) + "/" + std::to_string(row.index) + "/";
    dir.Write(at + "level", row.level);
    dir.Write(at + "type", row.type);
    dir.Write(at + "size", row.size);
    dir.Write(at + "shared_cpu_list", row.cpus);
  }
  Caches caches;
  caches.folder_fmt = dir.path() + "/%d/%d";
  caches.Read({0, 1, 2, 3, 4, 5});
  std::string text;
  for (const Cache& c : caches.list) {
    text += std::to_string(c.level) + c.type[0] + std::to_string(c.size_bytes >> 10) + ':' +
            vector_to_str_range(c.cpus, 0) + ' ';
  }
  EXPECT_EQ(text, "1D48:0-1 1I32:0-1 3U1024:0-2 3U2048:3 4I9:3 2U8:5 ");
  const std::pair<std::vector<int>, int64_t> sums[] = {
      {{0}, 1024}, {{0, 1, 2}, 1024}, {{2, 3}, 3072}, {{4}, 0}, {{}, 0}, {{5}, 8}};
  for (const auto& [cpus, kib] : sums) EXPECT_EQ(caches.LastLevelBytes(cpus), kib << 10);
}

}  // namespace
}  // namespace velmo
